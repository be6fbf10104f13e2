#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace kora {

// Replaces the daemon's executable file by a new one, keeping the current one
// beside it as "<name>.old" so that it can be put back.
//
// At every moment the target path names a complete executable, old or new:
// the new file is written and flushed under a temporary name in the target's
// folder, and renamed into place in one step.
class ExecutableReplacement {
  public:
    // A new executable larger than this is refused. The daemon's own is a few
    // megabytes.
    static constexpr std::uint64_t kMaxExecutableBytes = 256ull * 1024 * 1024;

    explicit ExecutableReplacement(std::filesystem::path target);

    // Installs `newExecutable` over the target when it is an ELF or Mach-O file
    // whose embedded bundle description ("__TEXT,__info_plist") has
    // CFBundleIdentifier `identifier`. The check reads the copy that is going
    // to be installed, so the file cannot be swapped between check and use.
    // False, with a log line saying why, when the file does not qualify or a
    // step fails; the target and "<name>.old" are then as they were.
    bool install(const std::string& identifier, const std::filesystem::path& newExecutable);

    // Renames "<name>.old" back over the target. False, with a log line, when
    // there is no kept executable or the rename fails.
    bool rollBack();

    const std::filesystem::path& target() const { return target_; }
    std::filesystem::path kept() const;

  private:
    void keepCurrent() const;

    std::filesystem::path target_;
};

}  // namespace kora
