#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/date.h"
#include "platform/input_limits.h"

namespace kora {

class PlistValue;

// A dictionary that keeps its keys in the order they were first set, as the
// files we read and write do. Keys are unique. A dictionary of more than a few
// keys also holds a hash index of their positions, so that look-ups and
// insertions do not walk the entries: the registry's holds thousands.
class PlistDictionary {
public:
    struct Entry;

    PlistDictionary();
    PlistDictionary(const PlistDictionary&);
    PlistDictionary(PlistDictionary&&) noexcept;
    PlistDictionary& operator=(const PlistDictionary&);
    PlistDictionary& operator=(PlistDictionary&&) noexcept;
    ~PlistDictionary();

    const PlistValue* find(std::string_view key) const;
    PlistValue* find(std::string_view key);
    // Replaces the value of an existing key in place, else appends the key.
    void set(std::string key, PlistValue value);
    bool erase(std::string_view key);

    // Typed look-ups: no value when the key is missing or holds another type.
    std::optional<std::string> string(std::string_view key) const;
    const PlistDictionary* dictionary(std::string_view key) const;

    bool empty() const;
    std::size_t size() const;
    const std::vector<Entry>& entries() const;

    bool operator==(const PlistDictionary& other) const;

private:
    class Index;
    // Where `key` sits in entries_, or entries_.size().
    std::size_t position(std::string_view key) const;

    std::vector<Entry> entries_;
    // None while the dictionary is small enough to search in order.
    std::unique_ptr<Index> index_;
};

class PlistValue {
public:
    using Data = std::vector<std::uint8_t>;
    using Array = std::vector<PlistValue>;
    using Storage =
        std::variant<std::string, std::int64_t, double, bool, Date, Data, Array, PlistDictionary>;

    PlistValue() = default;  // the empty string
    PlistValue(std::string value) : storage_(std::move(value)) {}
    PlistValue(const char* value) : storage_(std::string(value)) {}
    PlistValue(std::int64_t value) : storage_(value) {}
    PlistValue(int value) : storage_(std::int64_t{value}) {}
    PlistValue(double value) : storage_(value) {}
    PlistValue(bool value) : storage_(value) {}
    PlistValue(Date value) : storage_(value) {}
    PlistValue(Data value) : storage_(std::move(value)) {}
    PlistValue(Array value) : storage_(std::move(value)) {}
    PlistValue(PlistDictionary value) : storage_(std::move(value)) {}

    template <typename T>
    bool is() const {
        return std::holds_alternative<T>(storage_);
    }
    // A pointer to the value when it holds a T, else nullptr.
    template <typename T>
    const T* as() const {
        return std::get_if<T>(&storage_);
    }
    template <typename T>
    T* as() {
        return std::get_if<T>(&storage_);
    }

    const Storage& storage() const { return storage_; }
    bool operator==(const PlistValue& other) const { return storage_ == other.storage_; }

private:
    Storage storage_;
};

struct PlistDictionary::Entry {
    std::string key;
    PlistValue value;
    bool operator==(const Entry& other) const = default;
};

// XML or binary property lists. No value for anything unreadable: a missing
// file, a corrupt or truncated one, one over the limits. Only regular files are
// read, and opening never blocks, whatever a client named.
std::optional<PlistValue> parsePropertyList(std::span<const std::uint8_t> bytes);
std::optional<PlistValue> readPropertyList(const std::filesystem::path& path);

// Reads a file, or parses bytes, whose root must be a dictionary.
std::optional<PlistDictionary> readPropertyListDictionary(const std::filesystem::path& path);
std::optional<PlistDictionary> parsePropertyListDictionary(std::string_view bytes);

// Whether a text is valid UTF-8 made only of characters that XML 1.0 can
// carry: tab, line feed, carriage return, U+0020-U+D7FF, U+E000-U+FFFD and
// U+10000-U+10FFFF. The writer replaces every other character by U+FFFD, so
// only such a text reads back as it was written.
bool isXmlText(std::string_view text);

// The XML form, byte for byte as libplist writes it (header, DOCTYPE, tab
// indent). Empty for a value nested deeper than kPlistMaxDepth, which no reader
// would accept. plist_xml_writer.h writes parts of such a file.
std::string propertyListXml(const PlistValue& value);
std::string propertyListXml(const PlistDictionary& root);

// What tells one version of a file from the next: any writer that replaces or
// rewrites the file changes at least one of these.
struct FileStamp {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t size = 0;
    std::int64_t modifiedNanoseconds = 0;
    bool operator==(const FileStamp&) const = default;
};
// The stamp of what is at the path itself (a link is not followed); none when
// nothing is there.
std::optional<FileStamp> fileStampAt(const std::filesystem::path& path);
// The bytes of a regular file as the readers above read them (a file over
// kPlistMaxBytes only as far as shows that it is), and the stamp of the file
// read. For callers that parse them only when they must.
std::optional<std::string> readPropertyListBytes(const std::filesystem::path& path,
                                                 FileStamp& readStamp);

// Writes the XML form to a temporary file in the target's folder and renames it
// over the target, so readers never see half a file. An existing regular file
// keeps its mode; anything else at the path, a symbolic link included, is
// replaced by a regular file with mode 0644. False when anything failed (errno
// then tells why; the target is unchanged).
bool writePropertyList(const PlistValue& value, const std::filesystem::path& path);
// The same with the XML form already made, for callers that weigh it first.
// `writtenStamp`, when given, receives the stamp of the file now at the path.
bool writePropertyListXml(std::string_view xml, const std::filesystem::path& path,
                          FileStamp* writtenStamp = nullptr);

// Removes the temporary files that writes to `path` left behind when the
// process was killed between creating and renaming them. Only for a path that
// no other process writes, and only before this one writes it.
void removeLeftoverTemporaries(const std::filesystem::path& path);

}  // namespace kora
