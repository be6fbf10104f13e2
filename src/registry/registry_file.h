#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string_view>

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
// The root as last read or written stays in memory, with the stamp of the file
// it came from; the file is read again only when its stamp shows that another
// writer changed it. A write that would leave the bytes on disk as they are is
// skipped.
//
// A file that exists but cannot be read (corrupt, over the size cap) is kept
// aside as "<name>.unreadable" before the new root replaces it, so that an
// administrator can still recover its registrations. The file is never written
// larger than `maxBytes`, the size its reader accepts.
class RegistryFile {
  public:
    explicit RegistryFile(std::filesystem::path path, std::size_t maxBytes = kPlistMaxBytes);

    const std::filesystem::path& path() const { return path_; }

    // The root as it is on disk; nullptr when the file is missing or unreadable.
    const PlistDictionary* root();
    // One root key's value; none when the file or the key is missing.
    std::optional<PlistValue> rootValue(std::string_view key);

    // Replaces one root key and writes the file; the other root keys stay as
    // they are on disk.
    RegistryWrite replaceRootKey(std::string_view key, PlistValue value);

  private:
    // Reads the file again when it is not the one last read or written.
    void refresh();

    std::filesystem::path path_;
    std::size_t maxBytes_;
    // The root on disk, as parsed or as written; none when missing or unreadable.
    std::optional<PlistDictionary> root_;
    // The stamp of the file root_ describes; none when it must be read again.
    std::optional<FileStamp> stamp_;
    // Whether the file on disk holds exactly the bytes this writer makes of root_.
    bool writtenHere_ = false;
};

// Where an unreadable registry file is kept aside.
std::filesystem::path unreadableRegistryPath(const std::filesystem::path& path);

}  // namespace kora
