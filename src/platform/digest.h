#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

namespace kora {

// Digests as upper-case hexadecimal text, two digits per byte, high half first.

// SHA-1 of a file, streamed through a fixed buffer so that memory stays the
// same whatever the file's size. A file that cannot be opened, or whose reading
// fails part-way, is hashed as empty content: the answer is always a digest.
std::string sha1HexOfFile(const std::filesystem::path& file);

std::string md5Hex(std::span<const std::uint8_t> bytes);

}  // namespace kora
