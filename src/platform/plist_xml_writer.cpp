#include "platform/plist_xml_writer.h"

#include <glib.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <ctime>
#include <memory>
#include <variant>

namespace kora {
namespace {

bool isXmlCharacter(gunichar c) {
    return c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) ||
           (c >= 0xE000 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0x10FFFF);
}

bool isPlainAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= 0x20 && c < 0x7F) || c == '\t' || c == '\n' || c == '\r';
    });
}

// XML cannot hold invalid UTF-8, most control characters or U+FFFE and
// U+FFFF: such a file would be refused by other XML readers, or by ours, and
// the registry would be lost. Each such character, or each byte that is not
// UTF-8, becomes U+FFFD.
std::string xmlSafeText(std::string_view text) {
    std::string safe;
    const char* p = text.data();
    const char* const end = p + text.size();
    while (p < end) {
        const gunichar c = g_utf8_get_char_validated(p, end - p);
        // Negative (as a gunichar: huge) for an invalid or cut sequence and for NUL.
        const bool decoded = c < 0x110000;
        const char* next = decoded ? g_utf8_next_char(p) : p + 1;
        if (decoded && isXmlCharacter(c)) {
            safe.append(p, next);
        } else {
            safe += "\xEF\xBF\xBD";
        }
        p = next;
    }
    return safe;
}

// Only "&", "<" and ">" are escaped, as libplist does; quotes stay as they are.
void appendEscaped(std::string& out, std::string_view text) {
    std::size_t plain = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        if (c != '&' && c != '<' && c != '>') continue;
        out.append(text.substr(plain, at - plain));
        out += c == '&' ? "&amp;" : c == '<' ? "&lt;" : "&gt;";
        plain = at + 1;
    }
    out.append(text.substr(plain));
}

void appendText(std::string& out, std::string_view text) {
    if (isXmlText(text)) {
        appendEscaped(out, text);
    } else {
        appendEscaped(out, xmlSafeText(text));
    }
}

void appendElement(std::string& out, std::size_t depth, std::string_view tag,
                   std::string_view text) {
    out.append(depth, '\t');
    out += '<';
    out += tag;
    out += '>';
    out += text;
    out += "</";
    out += tag;
    out += ">\n";
}

// libplist's own spellings of zero, infinities and NaN; otherwise "%.17g".
std::string realText(double number) {
    if (std::isnan(number)) return "nan";
    if (std::isinf(number)) return number > 0 ? "+infinity" : "-infinity";
    if (number == 0) return "0.0";
    char text[32];
    const auto result =
        std::to_chars(text, text + sizeof text, number, std::chars_format::general, 17);
    return std::string(text, result.ptr);
}

// libplist keeps whole seconds since 2001 in 32 bits, so a date outside that
// range wraps around, and the fraction is not written.
std::string dateText(Date date) {
    const std::int64_t seconds = unixSeconds(date);
    const auto stored = static_cast<std::int32_t>(seconds - kPlistDateEpoch);
    const std::time_t time = std::int64_t{stored} + kPlistDateEpoch;
    std::tm parts{};
    ::gmtime_r(&time, &parts);
    char text[32];
    return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts));
}

// Base64 lines are indented by at most eight tabs and end by column 76,
// counting a tab as eight.
void appendData(std::string& out, const PlistValue::Data& data, std::size_t depth) {
    out.append(depth, '\t');
    out += "<data>\n";
    const std::unique_ptr<gchar, decltype(&g_free)> encoded(
        g_base64_encode(data.data(), data.size()), &g_free);
    const std::string_view base64(encoded.get());
    const std::size_t tabs = std::min<std::size_t>(depth, 8);
    const std::size_t width = 76 - 8 * tabs;
    for (std::size_t line = 0; line < base64.size(); line += width) {
        out.append(tabs, '\t');
        out += base64.substr(line, width);
        out += '\n';
    }
    out.append(depth, '\t');
    out += "</data>\n";
}

bool appendContainer(std::string& out, std::string_view tag, bool empty, std::size_t depth,
                     const auto& appendItems) {
    if (depth >= kPlistMaxDepth) return false;
    appendPlistXmlOpening(out, tag, empty, depth);
    if (!empty && !appendItems()) return false;
    appendPlistXmlClosing(out, tag, empty, depth);
    return true;
}

struct ValueWriter {
    std::string& out;
    std::size_t depth;

    bool operator()(const std::string& text) const {
        out.append(depth, '\t');
        out += "<string>";
        appendText(out, text);
        out += "</string>\n";
        return true;
    }
    bool operator()(std::int64_t number) const {
        char text[24];
        const auto result = std::to_chars(text, text + sizeof text, number);
        appendElement(out, depth, "integer", std::string_view(text, result.ptr - text));
        return true;
    }
    bool operator()(double number) const {
        appendElement(out, depth, "real", realText(number));
        return true;
    }
    bool operator()(bool flag) const {
        out.append(depth, '\t');
        out += flag ? "<true/>\n" : "<false/>\n";
        return true;
    }
    bool operator()(Date date) const {
        appendElement(out, depth, "date", dateText(date));
        return true;
    }
    bool operator()(const PlistValue::Data& data) const {
        appendData(out, data, depth);
        return true;
    }
    bool operator()(const PlistValue::Array& array) const {
        return appendContainer(out, "array", array.empty(), depth, [&] {
            return std::all_of(array.begin(), array.end(), [&](const PlistValue& item) {
                return appendPlistXml(out, item, depth + 1);
            });
        });
    }
    bool operator()(const PlistDictionary& dictionary) const {
        return appendContainer(out, "dict", dictionary.empty(), depth, [&] {
            const auto& entries = dictionary.entries();
            return std::all_of(entries.begin(), entries.end(), [&](const auto& entry) {
                appendPlistXmlKey(out, entry.key, depth + 1);
                return appendPlistXml(out, entry.value, depth + 1);
            });
        });
    }
};

}  // namespace

bool isXmlText(std::string_view text) {
    if (isPlainAscii(text)) return true;
    if (!g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr)) return false;
    const char* const end = text.data() + text.size();
    for (const char* p = text.data(); p < end; p = g_utf8_next_char(p)) {
        if (!isXmlCharacter(g_utf8_get_char(p))) return false;
    }
    return true;
}

bool appendPlistXml(std::string& out, const PlistValue& value, std::size_t depth) {
    return std::visit(ValueWriter{out, depth}, value.storage());
}

bool appendPlistXml(std::string& out, const PlistDictionary& dictionary, std::size_t depth) {
    return ValueWriter{out, depth}(dictionary);
}

void appendPlistXmlKey(std::string& out, std::string_view key, std::size_t depth) {
    out.append(depth, '\t');
    out += "<key>";
    appendText(out, key);
    out += "</key>\n";
}

void appendPlistXmlOpening(std::string& out, std::string_view tag, bool empty, std::size_t depth) {
    out.append(depth, '\t');
    out += '<';
    out += tag;
    out += empty ? "/>\n" : ">\n";
}

void appendPlistXmlClosing(std::string& out, std::string_view tag, bool empty, std::size_t depth) {
    if (empty) return;
    out.append(depth, '\t');
    out += "</";
    out += tag;
    out += ">\n";
}

}  // namespace kora
