#include "codecs/base64.h"

#include <array>
#include <new>
#include <stdexcept>

namespace kora {
namespace {

constexpr char kEncodingTable[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Marks a byte that is not a symbol of the alphabet.
constexpr std::uint8_t kNotInAlphabet = 0x7F;

using DecodingTable = std::array<std::uint8_t, 256>;

// Built on first use and kept for the life of the process.
const DecodingTable& decodingTable() {
    static const DecodingTable table = [] {
        DecodingTable built;
        built.fill(kNotInAlphabet);
        for (std::uint8_t i = 0; i < 64; ++i) {
            built[static_cast<unsigned char>(kEncodingTable[i])] = i;
        }
        return built;
    }();
    return table;
}

bool isSkipped(unsigned char c) {
    return c == '=' || c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

bool isAscii(const std::string& text) {
    for (unsigned char c : text) {
        if (c > 0x7F) return false;
    }
    return true;
}

// Appends the bytes of one group of `count` symbols (2 to 4); bits of the last
// symbol that fall outside the output are dropped.
void appendGroup(const std::array<std::uint8_t, 4>& s, int count, ByteBuffer& out) {
    out.push_back(static_cast<std::uint8_t>((s[0] << 2) | (s[1] >> 4)));
    if (count >= 3) out.push_back(static_cast<std::uint8_t>((s[1] << 4) | (s[2] >> 2)));
    if (count >= 4) out.push_back(static_cast<std::uint8_t>((s[2] << 6) | s[3]));
}

std::optional<ByteBuffer> decode(const std::string& text) {
    const DecodingTable& table = decodingTable();
    ByteBuffer out;
    out.reserve(3 * ((text.size() + 3) / 4));
    std::size_t position = 0;
    while (true) {
        std::array<std::uint8_t, 4> symbols{};
        int count = 0;
        while (count < 4 && position < text.size()) {
            const unsigned char c = static_cast<unsigned char>(text[position++]);
            if (isSkipped(c)) continue;
            if (table[c] == kNotInAlphabet) return std::nullopt;
            symbols[count++] = table[c];
        }
        if (count == 0) break;
        if (count == 1) return std::nullopt;
        appendGroup(symbols, count, out);
    }
    out.shrink_to_fit();
    return out;
}

}  // namespace

std::string base64Encoding(const ByteBuffer& bytes) {
    const std::size_t n = bytes.size();
    std::string out;
    out.reserve(4 * ((n + 2) / 3));
    for (std::size_t i = 0; i < n; i += 3) {
        const std::size_t left = n - i;
        const unsigned b0 = bytes[i];
        const unsigned b1 = left > 1 ? bytes[i + 1] : 0;
        const unsigned b2 = left > 2 ? bytes[i + 2] : 0;
        out += kEncodingTable[b0 >> 2];
        out += kEncodingTable[((b0 & 3) << 4) | (b1 >> 4)];
        out += left > 1 ? kEncodingTable[((b1 & 15) << 2) | (b2 >> 6)] : '=';
        out += left > 2 ? kEncodingTable[b2 & 63] : '=';
    }
    return out;
}

std::optional<ByteBuffer> dataWithBase64EncodedString(const std::optional<std::string>& text) {
    if (!text) throw std::invalid_argument("Error: String must not be nil");
    if (!isAscii(*text)) return std::nullopt;
    try {
        return decode(*text);
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    }
}

}  // namespace kora
