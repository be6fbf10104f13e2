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

RegistryFile::RegistryFile(std::filesystem::path path, std::size_t maxBytes)
    : path_(std::move(path)), maxBytes_(maxBytes) {}

void RegistryFile::refresh() {
    const std::optional<FileStamp> current = fileStampAt(path_);
    if (current && current == stamp_) return;
    FileStamp read;
    root_ = readPropertyListDictionary(path_, read);
    writtenHere_ = false;
    // Only a regular file at the path itself is remembered: through a link,
    // the stamp at the path is not the stamp of what was read.
    stamp_ = root_ && current == read ? std::optional(read) : std::nullopt;
}

const PlistDictionary* RegistryFile::root() {
    refresh();
    return root_ ? &*root_ : nullptr;
}

std::optional<PlistValue> RegistryFile::rootValue(std::string_view key) {
    const PlistDictionary* found = root();
    const PlistValue* value = found != nullptr ? found->find(key) : nullptr;
    return value != nullptr ? std::optional(*value) : std::nullopt;
}

RegistryWrite RegistryFile::replaceRootKey(std::string_view key, PlistValue value) {
    refresh();
    const bool readable = root_.has_value();
    if (readable && writtenHere_) {
        const PlistValue* onDisk = root_->find(key);
        if (onDisk != nullptr && *onDisk == value) return RegistryWrite::Written;
    }
    // The new value goes into the root in place of the old one, which comes
    // back when nothing is written: the root stays what is on disk.
    PlistDictionary& root = readable ? *root_ : root_.emplace();
    PlistValue* slot = root.find(key);
    const bool hadKey = slot != nullptr;
    std::optional<PlistValue> previous;
    if (hadKey) {
        previous = std::exchange(*slot, std::move(value));
    } else {
        root.set(std::string(key), std::move(value));
    }
    const auto putBack = [&] {
        if (!readable) {
            root_.reset();
        } else if (hadKey) {
            *root.find(key) = std::move(*previous);
        } else {
            root.erase(key);
        }
    };

    const std::string xml = propertyListXml(root);
    // The reader refuses a larger file, and every registration in it would be
    // lost at the next start.
    if (xml.size() > maxBytes_) {
        logInfo("The registry %s is not written: at %zu bytes it would exceed the %zu bytes "
                "that can be read back",
                path_.c_str(), xml.size(), maxBytes_);
        putBack();
        return RegistryWrite::TooLarge;
    }
    FileStamp written;
    if ((!readable && isRegularFile(path_) && !keepAside(path_)) ||
        !writePropertyListXml(xml, path_, &written)) {
        const int reason = errno;
        putBack();
        errno = reason;
        return RegistryWrite::Failed;
    }
    stamp_ = written;
    writtenHere_ = true;
    return RegistryWrite::Written;
}

}  // namespace kora
