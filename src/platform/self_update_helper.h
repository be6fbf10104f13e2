#pragma once

#include <optional>
#include <stdexcept>
#include <string>

namespace kora {

// Why a call to the self-update helper got no answer: the bus, the helper or
// the time ran out. The message says which, for the log.
class SelfUpdateHelperError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The separate program that replaces the daemon's own executable and restarts
// the daemon (pellin-helper). The installation hands the new executable over to
// it at the end of a successful self-update run.
class SelfUpdateHelper {
  public:
    virtual ~SelfUpdateHelper() = default;

    // Whether the helper can be reached: it runs, or it can be started on demand.
    // False, never an exception, when that cannot be told.
    virtual bool present() = 0;

    // Asks the helper to install `binary` as the new executable of the daemon
    // `identifier`, and waits for its answer: true when it installed the file
    // and is about to restart the daemon. An absent path travels as absent.
    // Throws SelfUpdateHelperError when no answer comes.
    virtual bool installDaemonWithIdentifier(const std::optional<std::string>& identifier,
                                             const std::optional<std::string>& binary) = 0;
};

}  // namespace kora
