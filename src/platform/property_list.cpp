#include "platform/property_list.h"

#include <fcntl.h>
#include <glib.h>
#include <plist/plist.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "platform/plist_guard.h"
#include "platform/plist_xml_writer.h"
#include "platform/regular_file.h"

namespace kora {

// ---- PlistDictionary ------------------------------------------------------

namespace {

// Below this many keys a walk through the entries is as quick as hashing, and
// the many small dictionaries of a file carry no index.
constexpr std::size_t kIndexedSize = 16;

std::size_t hashOf(std::string_view key) { return std::hash<std::string_view>{}(key); }

}  // namespace

// Open addressing over the entries' positions: a slot holds a position plus
// one, or zero when free. Never more than half full, so probes stay short.
class PlistDictionary::Index {
public:
    explicit Index(const std::vector<Entry>& entries) { rebuild(entries); }

    // The slot holding `key`, or the free slot where it would go.
    std::size_t slotOf(const std::vector<Entry>& entries, std::string_view key) const {
        const std::size_t mask = slots_.size() - 1;
        for (std::size_t slot = hashOf(key) & mask;; slot = (slot + 1) & mask) {
            const std::uint32_t held = slots_[slot];
            if (held == 0 || entries[held - 1].key == key) return slot;
        }
    }
    std::uint32_t at(std::size_t slot) const { return slots_[slot]; }

    // Records the entry just appended.
    void added(const std::vector<Entry>& entries) {
        if (2 * entries.size() > slots_.size()) {
            rebuild(entries);
            return;
        }
        slots_[slotOf(entries, entries.back().key)] = static_cast<std::uint32_t>(entries.size());
    }

    void rebuild(const std::vector<Entry>& entries) {
        std::size_t capacity = 2 * kIndexedSize;
        while (capacity < 2 * entries.size()) capacity *= 2;
        slots_.assign(capacity, 0);
        for (std::size_t position = 0; position < entries.size(); ++position) {
            slots_[slotOf(entries, entries[position].key)] =
                static_cast<std::uint32_t>(position + 1);
        }
    }

private:
    std::vector<std::uint32_t> slots_;
};

PlistDictionary::PlistDictionary() = default;
PlistDictionary::PlistDictionary(const PlistDictionary& other)
    : entries_(other.entries_),
      index_(other.index_ ? std::make_unique<Index>(*other.index_) : nullptr) {}
PlistDictionary::PlistDictionary(PlistDictionary&&) noexcept = default;
PlistDictionary& PlistDictionary::operator=(const PlistDictionary& other) {
    if (this != &other) *this = PlistDictionary(other);
    return *this;
}
PlistDictionary& PlistDictionary::operator=(PlistDictionary&&) noexcept = default;
PlistDictionary::~PlistDictionary() = default;

std::size_t PlistDictionary::position(std::string_view key) const {
    if (index_) {
        const std::uint32_t held = index_->at(index_->slotOf(entries_, key));
        return held == 0 ? entries_.size() : held - 1;
    }
    const auto it = std::find_if(entries_.begin(), entries_.end(),
                                 [key](const Entry& entry) { return entry.key == key; });
    return static_cast<std::size_t>(it - entries_.begin());
}

const PlistValue* PlistDictionary::find(std::string_view key) const {
    const std::size_t at = position(key);
    return at == entries_.size() ? nullptr : &entries_[at].value;
}

PlistValue* PlistDictionary::find(std::string_view key) {
    return const_cast<PlistValue*>(std::as_const(*this).find(key));
}

void PlistDictionary::set(std::string key, PlistValue value) {
    if (PlistValue* existing = find(key)) {
        *existing = std::move(value);
        return;
    }
    entries_.push_back(Entry{std::move(key), std::move(value)});
    if (index_) {
        index_->added(entries_);
    } else if (entries_.size() > kIndexedSize) {
        index_ = std::make_unique<Index>(entries_);
    }
}

bool PlistDictionary::erase(std::string_view key) {
    const std::size_t at = position(key);
    if (at == entries_.size()) return false;
    entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(at));
    // Every later entry moved down one place.
    if (index_) index_->rebuild(entries_);
    return true;
}

std::optional<std::string> PlistDictionary::string(std::string_view key) const {
    const PlistValue* value = find(key);
    if (value == nullptr) return std::nullopt;
    if (const std::string* text = value->as<std::string>()) return *text;
    return std::nullopt;
}

const PlistDictionary* PlistDictionary::dictionary(std::string_view key) const {
    const PlistValue* value = find(key);
    return value == nullptr ? nullptr : value->as<PlistDictionary>();
}

bool PlistDictionary::empty() const { return entries_.empty(); }
std::size_t PlistDictionary::size() const { return entries_.size(); }
const std::vector<PlistDictionary::Entry>& PlistDictionary::entries() const { return entries_; }

bool PlistDictionary::operator==(const PlistDictionary& other) const {
    return entries_ == other.entries_;
}

// ---- libplist conversion --------------------------------------------------

namespace {

struct PlistFree {
    void operator()(plist_t node) const { plist_free(node); }
};
using PlistPtr = std::unique_ptr<void, PlistFree>;

// The conversions refuse trees nested deeper than kPlistMaxDepth on their own,
// whatever guarded the input: no caller can make them recurse further.
// `depth` counts the containers around the node.
std::optional<PlistValue> fromNode(plist_t node, std::size_t depth);

std::optional<PlistValue> arrayFromNode(plist_t node, std::size_t depth) {
    PlistValue::Array array;
    array.reserve(plist_array_get_size(node));
    // The iterator walks the items once; plist_array_get_item counts from the
    // start each time, which made large arrays quadratic.
    plist_array_iter iter = nullptr;
    plist_array_new_iter(node, &iter);
    std::unique_ptr<void, decltype(&std::free)> iterGuard(iter, &std::free);
    for (;;) {
        plist_t child = nullptr;
        plist_array_next_item(node, iter, &child);
        if (child == nullptr) break;
        std::optional<PlistValue> item = fromNode(child, depth);
        if (!item) return std::nullopt;
        array.push_back(std::move(*item));
    }
    return PlistValue(std::move(array));
}

std::optional<PlistValue> dictionaryFromNode(plist_t node, std::size_t depth) {
    PlistDictionary dictionary;
    plist_dict_iter iter = nullptr;
    plist_dict_new_iter(node, &iter);
    std::unique_ptr<void, decltype(&std::free)> iterGuard(iter, &std::free);
    for (;;) {
        char* rawKey = nullptr;
        plist_t item = nullptr;
        plist_dict_next_item(node, iter, &rawKey, &item);
        if (item == nullptr) {
            std::free(rawKey);
            break;
        }
        std::string key = rawKey != nullptr ? rawKey : "";
        std::free(rawKey);
        std::optional<PlistValue> value = fromNode(item, depth);
        if (!value) return std::nullopt;
        dictionary.set(std::move(key), std::move(*value));
    }
    return PlistValue(std::move(dictionary));
}

std::optional<PlistValue> fromNode(plist_t node, std::size_t depth) {
    switch (plist_get_node_type(node)) {
        case PLIST_STRING: {
            uint64_t length = 0;
            const char* text = plist_get_string_ptr(node, &length);
            return PlistValue(std::string(text != nullptr ? text : "", length));
        }
        case PLIST_UINT: {
            uint64_t value = 0;
            plist_get_uint_val(node, &value);
            return PlistValue(static_cast<std::int64_t>(value));
        }
        case PLIST_REAL: {
            double value = 0;
            plist_get_real_val(node, &value);
            return PlistValue(value);
        }
        case PLIST_BOOLEAN: {
            uint8_t value = 0;
            plist_get_bool_val(node, &value);
            return PlistValue(value != 0);
        }
        case PLIST_DATE: {
            int32_t seconds = 0;
            int32_t micros = 0;
            plist_get_date_val(node, &seconds, &micros);
            return PlistValue(dateFromUnixSeconds(seconds + kPlistDateEpoch) +
                              std::chrono::microseconds(micros));
        }
        case PLIST_DATA: {
            uint64_t length = 0;
            const char* bytes = plist_get_data_ptr(node, &length);
            const auto* begin = reinterpret_cast<const std::uint8_t*>(bytes);
            return PlistValue(PlistValue::Data(begin, begin + (bytes != nullptr ? length : 0)));
        }
        case PLIST_ARRAY:
            if (depth >= kPlistMaxDepth) return std::nullopt;
            return arrayFromNode(node, depth + 1);
        case PLIST_DICT:
            if (depth >= kPlistMaxDepth) return std::nullopt;
            return dictionaryFromNode(node, depth + 1);
        default:
            // Keys, UIDs and unknown node types have no place in our files.
            return std::nullopt;
    }
}

FileStamp stampOf(const struct stat& status) {
    return FileStamp{static_cast<std::uint64_t>(status.st_dev),
                     static_cast<std::uint64_t>(status.st_ino),
                     static_cast<std::uint64_t>(status.st_size),
                     std::int64_t{status.st_mtim.tv_sec} * 1000000000 + status.st_mtim.tv_nsec};
}

std::optional<std::string> readWholeFile(const std::filesystem::path& path,
                                         FileStamp* readStamp = nullptr) {
    const std::optional<RegularFile> file = openRegularFile(path);
    if (!file) return std::nullopt;
    // Room for one byte more than the size found at opening, so that the end
    // shows without growing; a file that grows meanwhile is read on. A file
    // over the limit is not read to its end; parsing refuses it anyway.
    std::string bytes(std::min<std::uint64_t>(file->size, kPlistMaxBytes) + 1, '\0');
    std::size_t filled = 0;
    while (filled <= kPlistMaxBytes) {
        if (filled == bytes.size()) bytes.resize(std::min(2 * filled, kPlistMaxBytes + 1));
        const ssize_t n = ::read(file->fd.get(), bytes.data() + filled, bytes.size() - filled);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return std::nullopt;
        if (n == 0) break;
        filled += static_cast<std::size_t>(n);
    }
    bytes.resize(filled);
    // Taken after reading, so a change made meanwhile shows as a new stamp.
    struct stat status {};
    if (readStamp != nullptr) {
        if (::fstat(file->fd.get(), &status) != 0) return std::nullopt;
        *readStamp = stampOf(status);
    }
    return bytes;
}

std::span<const std::uint8_t> bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

// mkstemp replaces the six X's with letters and digits.
constexpr const char* kTemporarySuffix = ".XXXXXX";

std::string temporaryPrefix(const std::filesystem::path& path) {
    return "." + path.filename().string();
}

bool isLeftoverTemporary(const std::string& name, const std::string& prefix) {
    const std::size_t length = prefix.size() + std::strlen(kTemporarySuffix);
    if (name.size() != length || name.compare(0, prefix.size(), prefix) != 0) return false;
    if (name[prefix.size()] != '.') return false;
    return std::all_of(name.begin() + static_cast<std::ptrdiff_t>(prefix.size()) + 1, name.end(),
                       [](char c) { return g_ascii_isalnum(c); });
}

}  // namespace

std::optional<PlistValue> parsePropertyList(std::span<const std::uint8_t> bytes) {
    if (bytes.empty() || bytes.size() > kPlistMaxBytes) return std::nullopt;
    if (!withinPlistCaps(plistShape(bytes))) return std::nullopt;
    const char* data = reinterpret_cast<const char*>(bytes.data());
    const auto length = static_cast<uint32_t>(bytes.size());
    plist_t raw = nullptr;
    // The same test as the guard's, so libplist reads the form that was checked.
    if (std::string_view(data, length).starts_with("bplist00")) {
        plist_from_bin(data, length, &raw);
    } else {
        plist_from_xml(data, length, &raw);
    }
    PlistPtr root(raw);
    if (!root) return std::nullopt;
    return fromNode(root.get(), 0);
}

std::optional<PlistValue> readPropertyList(const std::filesystem::path& path) {
    const std::optional<std::string> bytes = readWholeFile(path);
    if (!bytes) return std::nullopt;
    return parsePropertyList(bytesOf(*bytes));
}

std::optional<PlistDictionary> parsePropertyListDictionary(std::string_view bytes) {
    std::optional<PlistValue> value = parsePropertyList(bytesOf(bytes));
    PlistDictionary* dictionary = value ? value->as<PlistDictionary>() : nullptr;
    if (dictionary == nullptr) return std::nullopt;
    return std::move(*dictionary);
}

std::optional<PlistDictionary> readPropertyListDictionary(const std::filesystem::path& path) {
    const std::optional<std::string> bytes = readWholeFile(path);
    if (!bytes) return std::nullopt;
    return parsePropertyListDictionary(*bytes);
}

std::optional<std::string> readPropertyListBytes(const std::filesystem::path& path,
                                                 FileStamp& readStamp) {
    return readWholeFile(path, &readStamp);
}

std::optional<FileStamp> fileStampAt(const std::filesystem::path& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) return std::nullopt;
    return stampOf(status);
}

namespace {

template <typename Value>
std::string wholeXml(const Value& value) {
    std::string xml(kPlistXmlHeader);
    if (!appendPlistXml(xml, value, 0)) return {};
    xml += kPlistXmlFooter;
    return xml;
}

}  // namespace

std::string propertyListXml(const PlistValue& value) { return wholeXml(value); }

std::string propertyListXml(const PlistDictionary& root) { return wholeXml(root); }

bool writePropertyList(const PlistValue& value, const std::filesystem::path& path) {
    return writePropertyListXml(propertyListXml(value), path);
}

namespace {

// The temporary's name, removed with the file unless it was renamed into place.
struct TemporaryName {
    std::string path;
    bool renamed = false;
    ~TemporaryName() {
        if (renamed) return;
        const int reason = errno;
        ::unlink(path.c_str());
        errno = reason;
    }
};

bool writeAll(int fd, std::string_view bytes) {
    std::size_t offset = 0;
    while (offset < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + offset, bytes.size() - offset);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        offset += static_cast<std::size_t>(n);
    }
    return true;
}

}  // namespace

bool writePropertyListXml(std::string_view xml, const std::filesystem::path& path,
                          FileStamp* writtenStamp) {
    if (xml.empty()) {
        errno = EINVAL;
        return false;
    }
    // lstat: a link's target (a link to /dev/zero is 0666) must not lend its mode.
    mode_t mode = 0644;
    struct stat existing {};
    if (::lstat(path.c_str(), &existing) == 0 && S_ISREG(existing.st_mode)) {
        mode = existing.st_mode & 07777;
    }

    // mkstemp picks a name no other process can predict or pre-create.
    TemporaryName temporary{path.parent_path() / (temporaryPrefix(path) + kTemporarySuffix)};
    const FileDescriptor fd(::mkstemp(temporary.path.data()));
    if (fd.get() < 0) {
        temporary.renamed = true;  // nothing was created
        return false;
    }
    // fsync reports the write errors; closing after it has nothing left to report.
    struct stat written {};
    if (::fchmod(fd.get(), mode) != 0 || !writeAll(fd.get(), xml) || ::fsync(fd.get()) != 0 ||
        ::fstat(fd.get(), &written) != 0) {
        return false;
    }
    if (::rename(temporary.path.c_str(), path.c_str()) != 0) return false;
    temporary.renamed = true;
    if (writtenStamp != nullptr) *writtenStamp = stampOf(written);
    return true;
}

void removeLeftoverTemporaries(const std::filesystem::path& path) {
    const std::string prefix = temporaryPrefix(path);
    const std::filesystem::path folder = path.parent_path().empty() ? "." : path.parent_path();
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        // A temporary is always a regular file; anything else is not ours.
        if (isLeftoverTemporary(entry.path().filename().string(), prefix) &&
            entry.is_regular_file(error) && !entry.is_symlink(error)) {
            std::filesystem::remove(entry.path(), error);
        }
    }
}

}  // namespace kora
