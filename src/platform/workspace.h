#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

namespace kora {

// The installed applications as the desktop knows them.
class Workspace {
  public:
    virtual ~Workspace() = default;

    // The absolute path of an installed application bundle with this bundle
    // identifier, or none.
    virtual std::optional<std::filesystem::path> absolutePathForAppBundleWithIdentifier(
        std::string_view identifier) const = 0;
};

// Looks in an applications folder and its direct sub-folders for "*.app"
// folders whose "Contents/Info.plist" carries the identifier as
// "CFBundleIdentifier"; the first match in path name order wins.
class LiveWorkspace : public Workspace {
  public:
    explicit LiveWorkspace(std::filesystem::path applicationsFolder = "/Applications");

    std::optional<std::filesystem::path> absolutePathForAppBundleWithIdentifier(
        std::string_view identifier) const override;

  private:
    std::filesystem::path applicationsFolder_;
};

}  // namespace kora
