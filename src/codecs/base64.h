#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kora {

using ByteBuffer = std::vector<std::uint8_t>;

// Standard RFC 4648 alphabet, "=" padding, no line breaks.
std::string base64Encoding(const ByteBuffer& bytes);

// Lenient reader: "=" and white space are skipped wherever they stand and bits
// left over after the last byte are ignored. Any other character outside the
// alphabet, non-ASCII text or a lone symbol in the last group gives no value.
// An absent string throws std::invalid_argument("Error: String must not be nil").
std::optional<ByteBuffer> dataWithBase64EncodedString(const std::optional<std::string>& text);

}  // namespace kora
