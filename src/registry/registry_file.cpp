#include "registry/registry_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

#include "platform/logging.h"
#include "platform/plist_xml_writer.h"

namespace kora {
namespace {

// A root key's value sits one level in, below "<dict>".
constexpr std::size_t kRootEntryDepth = 1;

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

std::optional<PlistDictionary> RegistryFile::readRoot() const {
    FileStamp read;
    const std::optional<std::string> bytes = readPropertyListBytes(path_, read);
    return bytes ? parsePropertyListDictionary(*bytes) : std::nullopt;
}

const PlistDictionary* RegistryFile::root() {
    root_ = readRoot();
    return root_ ? &*root_ : nullptr;
}

std::optional<PlistValue> RegistryFile::rootValue(std::string_view key) const {
    std::optional<PlistDictionary> found = readRoot();
    PlistValue* value = found ? found->find(key) : nullptr;
    return value != nullptr ? std::optional(std::move(*value)) : std::nullopt;
}

RegistryFile::Contents RegistryFile::contents() const {
    FileStamp read;
    std::optional<std::string> bytes = readPropertyListBytes(path_, read);
    if (!bytes) return {};
    // Only a regular file at the path itself counts as the one written here:
    // through a link, the stamp read is not the stamp at the path.
    if (read == stamp_ && fileStampAt(path_) == read) {
        return Contents{std::move(*bytes), layout_, true, true};
    }
    const std::optional<PlistDictionary> root = parsePropertyListDictionary(*bytes);
    if (!root) return {};
    Contents found{{}, {}, true, false};
    for (const PlistDictionary::Entry& entry : root->entries()) {
        const std::size_t begin = found.text.size();
        appendPlistXmlKey(found.text, entry.key, kRootEntryDepth);
        // The reader refused anything nested past the cap, so this cannot fail.
        appendPlistXml(found.text, entry.value, kRootEntryDepth);
        found.entries.push_back(RootEntry{entry.key, begin, found.text.size()});
    }
    return found;
}

RegistryWrite RegistryFile::replaceRootKey(std::string_view key, PlistValue value) {
    return replaceRootKey(key, [&value](std::string& text, std::size_t depth) {
        return appendPlistXml(text, value, depth);
    });
}

RegistryWrite RegistryFile::replaceRootKey(std::string_view key, const ValueLines& appendValue) {
    const Contents found = contents();
    std::string text;
    // Most writes change a few bytes of the file.
    text.reserve(found.text.size() + 1024);
    text += kPlistXmlHeader;
    text += "<dict>\n";
    std::vector<RootEntry> layout;
    // Only a value nested past what any reader accepts cannot be written.
    bool complete = true;
    const auto appendNew = [&] {
        const std::size_t begin = text.size();
        appendPlistXmlKey(text, key, kRootEntryDepth);
        complete = appendValue(text, kRootEntryDepth);
        layout.push_back(RootEntry{std::string(key), begin, text.size()});
    };
    // The key keeps its place among the others; a new key comes last.
    bool replaced = false;
    for (const RootEntry& old : found.entries) {
        if (old.key == key) {
            appendNew();
            replaced = true;
            continue;
        }
        layout.push_back(RootEntry{old.key, text.size(), text.size() + old.end - old.begin});
        text.append(found.text, old.begin, old.end - old.begin);
    }
    if (!replaced) appendNew();
    if (!complete) {
        errno = EINVAL;
        return RegistryWrite::Failed;
    }
    text += "</dict>\n";
    text += kPlistXmlFooter;

    if (found.writtenHere && text == found.text) return RegistryWrite::Written;
    // The reader refuses a larger file, and every registration in it would be
    // lost at the next start.
    if (text.size() > maxBytes_) {
        logInfo("The registry %s is not written: at %zu bytes it would exceed the %zu bytes "
                "that can be read back",
                path_.c_str(), text.size(), maxBytes_);
        return RegistryWrite::TooLarge;
    }
    FileStamp written;
    if ((!found.readable && isRegularFile(path_) && !keepAside(path_)) ||
        !writePropertyListXml(text, path_, &written)) {
        return RegistryWrite::Failed;
    }
    stamp_ = written;
    layout_ = std::move(layout);
    return RegistryWrite::Written;
}

}  // namespace kora
