#include "registry/registry_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

#include "platform/logging.h"

namespace kora {
namespace {

bool isRegularFile(const std::filesystem::path& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

// An older file kept aside is replaced: it has been there for a whole run, and
// the newer one holds the later registrations. False when the file could not
// be moved; it must then not be overwritten either.
bool keepAside(const std::filesystem::path& path) {
    const std::filesystem::path aside = unreadableRegistryPath(path);
    if (std::rename(path.c_str(), aside.c_str()) != 0) {
        const int reason = errno;
        logInfo("The registry %s cannot be read, nor kept as %s: %s", path.c_str(),
                aside.c_str(), std::strerror(reason));
        errno = reason;
        return false;
    }
    logInfo("The registry %s could not be read; it is kept as %s", path.c_str(), aside.c_str());
    return true;
}

}  // namespace

std::filesystem::path unreadableRegistryPath(const std::filesystem::path& path) {
    return path.string() + ".unreadable";
}

RegistryWrite replaceRegistryRootKey(const std::filesystem::path& path, const char* key,
                                     PlistValue value, std::size_t maxBytes) {
    std::optional<PlistDictionary> found = readPropertyListDictionary(path);
    PlistDictionary root = found.value_or(PlistDictionary{});
    root.set(key, std::move(value));
    const std::string xml = propertyListXml(PlistValue(std::move(root)));
    // The reader refuses a larger file, and every registration in it would be
    // lost at the next start.
    if (xml.size() > maxBytes) {
        logInfo("The registry %s is not written: at %zu bytes it would exceed the %zu bytes "
                "that can be read back",
                path.c_str(), xml.size(), maxBytes);
        return RegistryWrite::TooLarge;
    }
    if (!found && isRegularFile(path) && !keepAside(path)) return RegistryWrite::Failed;
    return writePropertyListXml(xml, path) ? RegistryWrite::Written : RegistryWrite::Failed;
}

}  // namespace kora
