#include "platform/loggable_text.h"

#include <algorithm>
#include <limits>

#include "platform/input_limits.h"

namespace kora {
namespace {

unsigned char byteAt(std::string_view text, std::size_t index) {
    return static_cast<unsigned char>(text[index]);
}

// The length of the well-formed UTF-8 sequence that `text` starts with, or 0
// when it does not start with one (a stray continuation byte, an overlong
// form, a surrogate, a code point past U+10FFFF, or a sequence cut short).
std::size_t sequenceLength(std::string_view text) {
    const unsigned char lead = byteAt(text, 0);
    if (lead < 0x80) return 1;
    std::size_t length = 0;
    unsigned char low = 0x80;  // the second byte's range narrows for some leads
    unsigned char high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) low = 0xA0;   // overlong
        if (lead == 0xED) high = 0x9F;  // surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) low = 0x90;   // overlong
        if (lead == 0xF4) high = 0x8F;  // past U+10FFFF
    } else {
        return 0;
    }
    if (text.size() < length || byteAt(text, 1) < low || byteAt(text, 1) > high) return 0;
    for (std::size_t index = 2; index < length; ++index) {
        if ((byteAt(text, index) & 0xC0) != 0x80) return 0;
    }
    return length;
}

void appendHex(const char* prefix, unsigned char byte, std::string& out) {
    static constexpr char kDigits[] = "0123456789abcdef";
    out += prefix;
    out += kDigits[byte >> 4];
    out += kDigits[byte & 0x0F];
}

// Appends one character (a UTF-8 sequence, or a single byte that is not one)
// as the log shows it.
void appendCharacter(std::string_view character, bool keepLayout, std::string& out) {
    const unsigned char lead = byteAt(character, 0);
    if (character.size() == 2 && lead == 0xC2 && byteAt(character, 1) < 0xA0) {
        appendHex("\\u00", byteAt(character, 1), out);  // C1 control
    } else if (character.size() > 1 || (lead >= 0x20 && lead < 0x7F && lead != '\\')) {
        out += character;
    } else if (keepLayout && (lead == '\n' || lead == '\t')) {
        out += static_cast<char>(lead);
    } else if (lead == '\\') {
        out += "\\\\";
    } else if (lead == '\n') {
        out += "\\n";
    } else if (lead == '\r') {
        out += "\\r";
    } else if (lead == '\t') {
        out += "\\t";
    } else {
        appendHex("\\x", lead, out);  // other controls, DEL, bytes that are not UTF-8
    }
}

std::string escaped(std::string_view text, bool keepLayout, std::size_t limit) {
    std::string out;
    out.reserve(std::min(text.size(), limit));
    std::size_t at = 0;
    while (at < text.size()) {
        const std::size_t length = std::max<std::size_t>(sequenceLength(text.substr(at)), 1);
        if (at + length > limit) break;
        appendCharacter(text.substr(at, length), keepLayout, out);
        at += length;
    }
    if (at < text.size()) out += "... (" + std::to_string(text.size()) + " bytes)";
    return out;
}

}  // namespace

std::string loggable(std::string_view outsideText) {
    return escaped(outsideText, false, kMaxLoggedTextBytes);
}

std::string loggableTrace(std::string_view trace) {
    return escaped(trace, true, std::numeric_limits<std::size_t>::max());
}

}  // namespace kora
