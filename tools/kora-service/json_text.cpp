#include "json_text.h"

#include <glib.h>

#include <cstdio>

namespace kora::service {
namespace {

void appendEscape(std::string& out, unsigned code) {
    char buffer[8];
    std::snprintf(buffer, sizeof buffer, "\\u%04x", code);
    out += buffer;
}

}  // namespace

void appendJsonString(std::string& out, std::string_view text) {
    out += '"';
    const char* end = text.data() + text.size();
    for (const char* p = text.data(); p < end;) {
        const auto byte = static_cast<unsigned char>(*p);
        if (byte >= 0x80) {
            // A valid UTF-8 sequence goes through whole; a stray byte becomes
            // U+FFFD, as JSON must be Unicode text.
            const gunichar code = g_utf8_get_char_validated(p, end - p);
            if (code == static_cast<gunichar>(-1) || code == static_cast<gunichar>(-2)) {
                appendEscape(out, 0xfffd);
                ++p;
            } else {
                const char* next = g_utf8_next_char(p);
                out.append(p, next);
                p = next;
            }
            continue;
        }
        switch (byte) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\t': out += "\\t"; break;
            case '\r': out += "\\r"; break;
            default:
                if (byte < 0x20 || byte == 0x7f) {
                    appendEscape(out, byte);
                } else {
                    out += static_cast<char>(byte);
                }
        }
        ++p;
    }
    out += '"';
}

}  // namespace kora::service
