#pragma once

#include <optional>
#include <string>

namespace kora {

// The separate program that replaces the daemon's own executable and restarts
// it. The daemon cannot replace itself while it runs, so a successful install
// script that asks for it hands the new executable over to this helper.
class SelfUpdateHelper {
  public:
    virtual ~SelfUpdateHelper() = default;

    // Whether the helper can be reached: its name has an owner, or it can be
    // started on demand.
    virtual bool present() = 0;

    // Asks the helper to install `binaryPath` as the daemon `identifier`, and
    // returns once it has answered. The answer says nothing the daemon acts
    // on. `binaryPath` is absent when the script named none. Throws
    // std::exception when the call cannot be made or fails.
    virtual void installDaemon(const std::string& identifier,
                               const std::optional<std::string>& binaryPath) = 0;
};

}  // namespace kora
