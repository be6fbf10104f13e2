#pragma once

#include <cstddef>
#include <filesystem>

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

// Replaces one root key of the registry file as found on disk and writes the
// whole tree back; the other root keys stay as they were. The file is never
// written larger than `maxBytes`, the size its reader accepts.
//
// A file that exists but cannot be read (corrupt, over the size cap) is kept
// aside as "<name>.unreadable" before the new tree replaces it, so that an
// administrator can still recover its registrations.
RegistryWrite replaceRegistryRootKey(const std::filesystem::path& path, const char* key,
                                     PlistValue value, std::size_t maxBytes = kPlistMaxBytes);

// Where an unreadable registry file is kept aside.
std::filesystem::path unreadableRegistryPath(const std::filesystem::path& path);

}  // namespace kora
