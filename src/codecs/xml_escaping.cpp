#include "codecs/xml_escaping.h"

#include <array>
#include <utility>

namespace kora {
namespace {

using Replacement = std::pair<std::string_view, std::string_view>;

// Replaces every occurrence of `from`, left to right; inserted text is not
// scanned again.
std::string replaceAll(std::string_view text, const Replacement& replacement) {
    const auto& [from, to] = replacement;
    std::string result;
    result.reserve(text.size());
    std::size_t start = 0;
    for (std::size_t found = text.find(from); found != std::string_view::npos;
         found = text.find(from, start)) {
        result.append(text, start, found - start).append(to);
        start = found + from.size();
    }
    result.append(text.substr(start));
    return result;
}

template <std::size_t N>
std::string replaceInOrder(std::string_view text, const std::array<Replacement, N>& steps) {
    std::string result(text);
    for (const auto& step : steps) result = replaceAll(result, step);
    return result;
}

// The ampersand comes back last, so "&amp;lt;" unescapes to "&lt;" rather
// than "<".
constexpr std::array<Replacement, 5> kUnescapeSteps{{
    {"&quot;", "\""},
    {"&apos;", "'"},
    {"&lt;", "<"},
    {"&gt;", ">"},
    {"&amp;", "&"},
}};

}  // namespace

// One pass, so every character is escaped exactly once.
std::string stringByEscapingXML(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (const char c : text) {
        switch (c) {
            case '&':
                result += "&amp;";
                break;
            case '"':
                result += "&quot;";
                break;
            case '\'':
                result += "&apos;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            default:
                result += c;
        }
    }
    return result;
}

std::string stringByUnescapingXML(std::string_view text) {
    return replaceInOrder(text, kUnescapeSteps);
}

std::string xmlString(std::string_view text) {
    return stringByEscapingXML(text);
}

}  // namespace kora
