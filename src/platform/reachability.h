#pragma once

#include <optional>
#include <string>

namespace kora {

// Whether a host can be reached over the network as it stands now.
class Reachability {
  public:
    struct Flags {
        bool reachable = false;
        // No network is up yet: one would first have to be set up (dial-on-demand).
        bool connectionRequired = false;
    };

    virtual ~Reachability() = default;

    // The host's flags, or none when the question cannot be asked (an empty
    // host name).
    virtual std::optional<Flags> flagsForHost(const std::string& host) = 0;
};

// GNetworkMonitor: reachable is `can_reach` for the host, asked asynchronously
// while the default main context keeps turning; a monitor that sees no network
// at all reports that a connection is required.
class LiveReachability : public Reachability {
  public:
    std::optional<Flags> flagsForHost(const std::string& host) override;
};

}  // namespace kora
