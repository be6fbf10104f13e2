#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/input_limits.h"
#include "platform/property_list.h"

namespace kora {

// What became of one write of the registry file.
enum class RegistryWrite {
    Written,
    // The file system refused it (errno tells why); the file is as it was.
    Failed,
    // The file would have grown past what the daemon reads back at start, so
    // nothing was written; one line says so in the log.
    TooLarge,
};

// The one reader and writer of the registry file, a property list whose root
// keys belong to different owners:
//   - "KoraDB", the registered applications. The registry's mutators change
//     memory only; their callers then run syncDB, which writes this key. The
//     registry also writes it when it is destroyed.
//   - "UpdateDB", the updates in progress: written at once whenever the
//     registry stores an update.
//   - "LastKoraCheckDate": read by the controller at start, written after every
//     completed check.
// Writing one key keeps every other root key exactly as it is on disk, whoever
// wrote it.
//
// Nothing of the file stays in memory but where each root key lies in the
// file this writer last wrote, and that file's stamp. A write reads the file's
// bytes again: while the stamp shows that no one else changed the file, they
// are taken as they are, and parsed only when another writer changed it. A
// write that would leave the bytes on disk as they are is skipped.
//
// A file that exists but cannot be read (corrupt, over the size cap) is kept
// aside as "<name>.unreadable" before the new root replaces it, so that an
// administrator can still recover its registrations. The file is never written
// larger than `maxBytes`, the size its reader accepts.
class RegistryFile {
  public:
    explicit RegistryFile(std::filesystem::path path, std::size_t maxBytes = kPlistMaxBytes);

    const std::filesystem::path& path() const { return path_; }

    // The root as it is on disk, read now; none when the file is missing or
    // unreadable.
    std::optional<PlistDictionary> readRoot() const;
    // The same, held until the next call.
    const PlistDictionary* root();
    // One root key's value; none when the file or the key is missing.
    std::optional<PlistValue> rootValue(std::string_view key) const;

    // Replaces one root key and writes the file; the other root keys stay as
    // they are on disk.
    RegistryWrite replaceRootKey(std::string_view key, PlistValue value);
    // Appends a value's lines to the file's text at the given depth, with the
    // functions of platform/plist_xml_writer.h; false when it cannot.
    using ValueLines = std::function<bool(std::string& text, std::size_t depth)>;
    // The same, for a value written straight into the file's text: a large one
    // need not first be built as a tree.
    RegistryWrite replaceRootKey(std::string_view key, const ValueLines& appendValue);

  private:
    // Where one root key and its value lie in the file's text.
    struct RootEntry {
        std::string key;
        std::size_t begin = 0;
        std::size_t end = 0;
    };
    // The file as found, in this writer's form.
    struct Contents {
        std::string text;
        std::vector<RootEntry> entries;
        // False for a missing or unreadable file, which holds no entries.
        bool readable = false;
        // Whether `text` is the file's own bytes, as this writer wrote them.
        bool writtenHere = false;
    };

    Contents contents() const;

    std::filesystem::path path_;
    std::size_t maxBytes_;
    // The stamp of the file this writer last wrote, and where its root keys
    // lie; none before the first write.
    std::optional<FileStamp> stamp_;
    std::vector<RootEntry> layout_;
    // What root() last read.
    std::optional<PlistDictionary> root_;
};

// Where an unreadable registry file is kept aside.
std::filesystem::path unreadableRegistryPath(const std::filesystem::path& path);

}  // namespace kora
