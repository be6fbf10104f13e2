#include "platform/workspace.h"

#include <algorithm>
#include <system_error>
#include <vector>

#include "platform/property_list.h"

namespace kora {
namespace {

namespace fs = std::filesystem;

bool isDirectory(const fs::path& path) {
    std::error_code error;
    return fs::is_directory(path, error);
}

bool isAppBundleName(const fs::path& path) {
    return path.extension() == ".app";
}

// The folder's entries sorted by name; an unreadable folder has none.
std::vector<fs::path> sortedEntries(const fs::path& folder) {
    std::vector<fs::path> entries;
    std::error_code error;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
        entries.push_back(it->path());
    }
    std::sort(entries.begin(), entries.end());
    return entries;
}

bool bundleHasIdentifier(const fs::path& bundle, std::string_view identifier) {
    const fs::path infoPath = bundle / "Contents" / "Info.plist";
    const auto info = readPropertyListDictionary(infoPath);
    return info && info->string("CFBundleIdentifier") == identifier;
}

}  // namespace

LiveWorkspace::LiveWorkspace(fs::path applicationsFolder)
    : applicationsFolder_(std::move(applicationsFolder)) {}

std::optional<fs::path> LiveWorkspace::absolutePathForAppBundleWithIdentifier(
    std::string_view identifier) const {
    // Walking each sorted level depth first visits the bundles in path name order.
    for (const fs::path& entry : sortedEntries(applicationsFolder_)) {
        if (!isDirectory(entry)) continue;
        if (isAppBundleName(entry)) {
            if (bundleHasIdentifier(entry, identifier)) return entry;
            continue;  // a bundle's insides are not searched
        }
        for (const fs::path& inner : sortedEntries(entry)) {
            if (isAppBundleName(inner) && isDirectory(inner) &&
                bundleHasIdentifier(inner, identifier)) {
                return inner;
            }
        }
    }
    return std::nullopt;
}

}  // namespace kora
