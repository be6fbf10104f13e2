#include "log_text.h"

#include <glib.h>

#include "platform/input_limits.h"

namespace kora {
namespace {

// Bytes of multi-byte UTF-8 characters stay as they are: a path with letters
// beyond ASCII stays readable.
const std::string& nonAscii() {
    static const std::string bytes = [] {
        std::string all;
        for (int byte = 0x80; byte <= 0xff; ++byte) all += static_cast<char>(byte);
        return all;
    }();
    return bytes;
}

}  // namespace

std::string loggable(const std::string& text) {
    const bool cut = text.size() > kMaxLoggedTextBytes;
    const std::string shown = cut ? text.substr(0, kMaxLoggedTextBytes) : text;
    // g_strescape stops at a NUL byte; D-Bus strings and paths hold none.
    g_autofree gchar* escaped = g_strescape(shown.c_str(), nonAscii().c_str());
    std::string result = escaped;
    if (cut) result += "... (" + std::to_string(text.size()) + " bytes)";
    return result;
}

}  // namespace kora
