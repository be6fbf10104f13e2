#include "codecs/value_codecs.h"

#include <glib.h>

#include <charconv>
#include <cmath>
#include <memory>

#include "codecs/base64.h"
#include "dates/iso8601_parsing.h"
#include "dates/iso8601_unparsing.h"
#include "codecs/xml_escaping.h"
#include "codecs/xml_resources.h"

namespace kora {
namespace {

// The prefix becomes part of the literal node name; the envelope declares it.
std::string qualifiedName(std::string_view elementName, const std::optional<std::string>& prefix) {
    if (!prefix || prefix->empty()) return std::string(elementName);
    return *prefix + ":" + std::string(elementName);
}

// libxml2 reads the content as character data and resolves the predefined
// entities, so escaping first leaves exactly `text` in the element.
xmlNodePtr newValueElement(xmlDocPtr doc, std::string_view elementName,
                           const std::optional<std::string>& prefix, std::string_view text) {
    const std::string name = xmlString(qualifiedName(elementName, prefix));
    const std::string content = xmlString(text);
    return xmlNewDocNode(doc, nullptr, BAD_CAST name.c_str(),
                         content.empty() ? nullptr : BAD_CAST content.c_str());
}

// The direct text and CDATA of the element with entities substituted, then
// unescaped once more. No text children means no text at all.
std::optional<std::string> elementText(xmlNodePtr node) {
    if (node == nullptr) return std::nullopt;
    XmlCharBuffer text(xmlNodeListGetString(node->doc, node->children, 1));
    if (!text) return std::nullopt;
    return stringByUnescapingXML(reinterpret_cast<const char*>(text.get()));
}

// Whole numbers as plain digits (never an exponent), others in their shortest
// round-trip form.
std::string numberText(double value) {
    char buffer[400];
    const bool whole = std::isfinite(value) && std::trunc(value) == value;
    const auto result =
        whole ? std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed)
              : std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

std::size_t skipDigits(std::string_view text, std::size_t position) {
    while (position < text.size() && isDigit(text[position])) ++position;
    return position;
}

// The length of the longest decimal number at the start of `text`: sign,
// digits, optional fraction, and an exponent only when it has digits.
std::size_t decimalPrefixLength(std::string_view text) {
    std::size_t position = 0;
    if (position < text.size() && (text[position] == '+' || text[position] == '-')) ++position;
    const std::size_t integerEnd = skipDigits(text, position);
    bool hasDigits = integerEnd > position;
    position = integerEnd;
    if (position < text.size() && text[position] == '.') {
        const std::size_t fractionEnd = skipDigits(text, position + 1);
        hasDigits = hasDigits || fractionEnd > position + 1;
        position = fractionEnd;
    }
    if (!hasDigits) return 0;
    if (position < text.size() && (text[position] == 'e' || text[position] == 'E')) {
        std::size_t exponent = position + 1;
        if (exponent < text.size() && (text[exponent] == '+' || text[exponent] == '-')) {
            ++exponent;
        }
        const std::size_t exponentEnd = skipDigits(text, exponent);
        if (exponentEnd > exponent) position = exponentEnd;
    }
    return position;
}

double numberFromText(std::string_view text) {
    const std::size_t start = text.find_first_not_of(" \t\n\v\f\r");
    if (start == std::string_view::npos) return 0;
    const std::string number(text.substr(start, decimalPrefixLength(text.substr(start))));
    // The C locale's decimal point whatever the process locale; out-of-range
    // values saturate the way strtod does.
    return number.empty() ? 0 : g_ascii_strtod(number.c_str(), nullptr);
}

}  // namespace

xmlNodePtr ValueCodec<std::string>::xmlNodeForDoc(const std::string& value, xmlDocPtr doc,
                                                  std::string_view elementName,
                                                  const std::optional<std::string>& prefix) {
    return newValueElement(doc, elementName, prefix, value);
}

std::optional<std::string> ValueCodec<std::string>::deserializeNode(xmlNodePtr node) {
    return elementText(node);
}

xmlNodePtr ValueCodec<double>::xmlNodeForDoc(double value, xmlDocPtr doc,
                                             std::string_view elementName,
                                             const std::optional<std::string>& prefix) {
    return newValueElement(doc, elementName, prefix, numberText(value));
}

std::optional<double> ValueCodec<double>::deserializeNode(xmlNodePtr node) {
    const std::optional<std::string> text = elementText(node);
    return text ? numberFromText(*text) : 0.0;
}

xmlNodePtr ValueCodec<Date>::xmlNodeForDoc(Date value, xmlDocPtr doc, std::string_view elementName,
                                           const std::optional<std::string>& prefix) {
    return newValueElement(doc, elementName, prefix, ISO8601DateString(value));
}

std::optional<Date> ValueCodec<Date>::deserializeNode(xmlNodePtr node) {
    const std::optional<std::string> text = elementText(node);
    if (!text) return std::nullopt;
    return dateWithString(*text);
}

xmlNodePtr ValueCodec<ByteBuffer>::xmlNodeForDoc(const ByteBuffer& value, xmlDocPtr doc,
                                                 std::string_view elementName,
                                                 const std::optional<std::string>& prefix) {
    return newValueElement(doc, elementName, prefix, base64Encoding(value));
}

std::optional<ByteBuffer> ValueCodec<ByteBuffer>::deserializeNode(xmlNodePtr node) {
    const std::optional<std::string> text = elementText(node);
    if (!text) return std::nullopt;
    return dataWithBase64EncodedString(text);
}

xmlNodePtr ValueCodec<USBoolean>::xmlNodeForDoc(const USBoolean& value, xmlDocPtr doc,
                                                std::string_view elementName,
                                                const std::optional<std::string>& prefix) {
    return newValueElement(doc, elementName, prefix, value.stringValue());
}

std::optional<USBoolean> ValueCodec<USBoolean>::deserializeNode(xmlNodePtr node) {
    const std::optional<std::string> text = elementText(node);
    if (text == "true") return USBoolean(true);
    if (text == "false") return USBoolean(false);
    return std::nullopt;
}

}  // namespace kora
