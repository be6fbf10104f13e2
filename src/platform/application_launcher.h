#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>

namespace kora {

// Starts desktop applications, always as an ordinary user.
class ApplicationLauncher {
  public:
    virtual ~ApplicationLauncher() = default;

    // Starts the bundle's "Contents/MacOS/" + "CFBundleExecutable" (from its
    // "Contents/Info.plist") as `user`, with that user's groups and home,
    // detached: its own session, standard streams on /dev/null, not waited for.
    // False when `user` is root, the user is unknown, the bundle names no
    // executable, or the program cannot be started.
    virtual bool launchApplication(const std::filesystem::path& bundle, uid_t user) = 0;

    // The owner of a file or folder (not following a final symbolic link), or
    // none when it cannot be examined.
    virtual std::optional<uid_t> ownerOf(const std::filesystem::path& path) const = 0;
};

// Forks, drops to the user (setgid, initgroups, setuid) and executes the program.
class LiveApplicationLauncher : public ApplicationLauncher {
  public:
    bool launchApplication(const std::filesystem::path& bundle, uid_t user) override;
    std::optional<uid_t> ownerOf(const std::filesystem::path& path) const override;
};

}  // namespace kora
