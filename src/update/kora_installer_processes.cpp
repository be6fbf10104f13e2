// Stopping and starting desktop applications.
#include <system_error>

#include "platform/logging.h"
#include "update/kora_installer.h"

namespace kora {

namespace fs = std::filesystem;

bool KoraInstaller::KillApplication(const OptionalString& identifier) {
    if (!identifier) return false;
    try {
        if (!context_.runningApplications.available()) return true;
        OptionalString bundle = FindPathForIdentifier(*identifier);
        if (!bundle) {
            const auto found = context_.workspace.absolutePathForAppBundleWithIdentifier(*identifier);
            if (found) bundle = found->string();
        }
        if (!bundle) return true;
        const auto stopped = context_.runningApplications.terminateApplicationsInBundle(*bundle);
        // The first ordinary user who ran it gets it back; an instance that ran
        // as root says nothing about whose desktop it belongs to.
        stoppedBy_.erase(*identifier);
        for (const RunningApplications::Process& process : stopped) {
            if (process.user != 0) {
                stoppedBy_.emplace(*identifier, process.user);
                break;
            }
        }
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

bool KoraInstaller::StartApplication(const OptionalString& identifier) {
    try {
        if (!context_.runningApplications.available() || !identifier) return true;
        std::optional<fs::path> bundle;
        std::error_code error;
        if (const OptionalString registered = FindPathForIdentifier(*identifier);
            registered && fs::exists(*registered, error)) {
            bundle = *registered;
        } else {
            bundle = context_.workspace.absolutePathForAppBundleWithIdentifier(*identifier);
        }
        if (!bundle) return true;
        const std::optional<uid_t> user = userToStartAs(*identifier, *bundle);
        if (!user) {
            logInfo("Not starting %s: it never runs as root, and no other user ran it or owns %s\n",
                    loggable(*identifier).c_str(), loggable(bundle->string()).c_str());
            return true;
        }
        context_.launcher.launchApplication(*bundle, *user);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

// The user who ran the instance KillApplication stopped (used once), else the
// bundle folder's owner unless that is root.
std::optional<uid_t> KoraInstaller::userToStartAs(const std::string& identifier,
                                                  const fs::path& bundle) {
    if (const auto stopped = stoppedBy_.find(identifier); stopped != stoppedBy_.end()) {
        const uid_t user = stopped->second;
        stoppedBy_.erase(stopped);
        return user;
    }
    const std::optional<uid_t> owner = context_.launcher.ownerOf(bundle);
    if (owner && *owner != 0) return owner;
    return std::nullopt;
}

}  // namespace kora
