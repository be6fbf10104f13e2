#include "codecs/value_codecs.h"

#include <gtest/gtest.h>
#include <libxml/parser.h>

#include <cmath>

#include "codecs/service_namespaces.h"
#include "codecs/xml_escaping.h"
#include "codecs/xml_resources.h"

namespace kora {
namespace {

template <typename T>
using Rows = std::vector<std::pair<std::string, std::optional<T>>>;
constexpr auto none = std::nullopt;

XmlDocument parse(const std::string& xml) {
    return XmlDocument(xmlParseMemory(xml.data(), static_cast<int>(xml.size())));
}

// Each row: an element's content and the value the codec of T reads from it.
template <typename T>
void expectReads(const Rows<T>& rows) {
    for (const auto& [content, expected] : rows) {
        XmlDocument doc = parse("<v>" + content + "</v>");
        EXPECT_EQ(ValueCodec<T>::deserializeNode(xmlDocGetRootElement(doc.get())), expected)
            << content;
    }
}

// The value read back from a document written as envelopes are, and its element's line.
template <typename T>
std::pair<std::optional<T>, std::string> roundTrip(const T& value) {
    XmlDocument doc(xmlNewDoc(BAD_CAST "1.0"));
    xmlDocSetRootElement(doc.get(), xmlNewDocNode(doc.get(), nullptr, BAD_CAST "Root", nullptr));
    xmlNewNs(doc->children, BAD_CAST KoraServiceNamespace, BAD_CAST "KORA");
    xmlAddChild(doc->children, ValueCodec<T>::xmlNodeForDoc(value, doc.get(), "Field", "KORA"));
    xmlChar* dumped = nullptr;
    int length = 0;
    xmlDocDumpFormatMemory(doc.get(), &dumped, &length, 1);
    const std::string xml(textOf(XmlCharBuffer(dumped).get()), length);
    XmlDocument parsed = parse(xml);
    const std::size_t line = xml.find("<KORA:Field");
    return {ValueCodec<T>::deserializeNode(xmlFirstElementChild(parsed->children)),
            xml.substr(line, xml.find('\n', line) - line)};
}

// The value comes back unchanged from its element, written as `text`.
template <typename T>
void expectCarried(const T& value, const std::string& text) {
    EXPECT_EQ(roundTrip(value), std::pair(std::optional(value),
                                          std::string("<KORA:Field>") + text + "</KORA:Field>"));
}

TEST(XMLEscaping, EscapesTheFiveEntitiesOnceAndRestoresTheAmpersandLast) {
    // clang-format off
    const std::pair<const char*, const char*> rows[] = {
        {"x<y & 'z'", "x&lt;y &amp; &apos;z&apos;"}, {"\"", "&quot;"}, {"a>b", "a&gt;b"},
        {"&lt; &#60;", "&amp;lt; &amp;#60;"}};
    // clang-format on
    for (const auto& [plain, escaped] : rows) {
        EXPECT_EQ(stringByEscapingXML(plain), escaped);
        EXPECT_EQ(stringByUnescapingXML(escaped), plain);
    }
}

TEST(ValueCodecs, CarryEveryTypeThroughARealDocument) {
    // Reading unescapes once more, and an empty string has no text at all.
    // clang-format off
    const Rows<std::string> strings = {{"x<y & 'z' \"q\" >", "x<y & 'z' \"q\" >"},
        {"caf\xc3\xa9", "caf\xc3\xa9"}, {" ", " "}, {"&amp;lt;", "&lt;"}, {"", none}};
    // clang-format on
    for (const auto& [text, expected] : strings) EXPECT_EQ(roundTrip(text).first, expected);
    // Whole numbers are written as plain digits, never with an exponent.
    expectCarried(-42.0, "-42");
    expectCarried(1e20, "100000000000000000000");
    expectCarried(0.1, "0.1");
    expectCarried(USBoolean(true), "true");
    expectCarried(ByteBuffer{0, 1, 0x3c, 0x26, 0xfe, 0xff}, "AAE8Jv7/");
    expectCarried(dateFromUnixSeconds(1299506709), "2011-03-07T14:05:09Z");
}

TEST(ValueCodecs, ReadOnlyTheElementsOwnTextAndOnlyWellFormedValues) {
    // clang-format off
    expectReads<std::string>({{"a &amp;lt; b", "a < b"}, {"", none}, {"<![CDATA[x&]]>y", "x&y"},
                              {"a<b>skip</b>c", "ac"}, {"<b>only a child</b>", none}});
    // Numbers: the longest decimal prefix, else zero.
    expectReads<double>({{"  42abc", 42}, {"abc", 0}, {"", 0}, {"-1.5e2x", -150}, {"+.5", 0.5},
                         {"7e", 7}, {"0x10", 0}, {"inf", 0}, {"1e999", HUGE_VAL}});
    expectReads<USBoolean>({{"true", USBoolean(true)}, {"false", USBoolean(false)},
                            {"TRUE", none}, {"1", none}, {"", none}});
    // clang-format on
    expectReads<ByteBuffer>({{"YW*j", none}, {"", none}});
    expectReads<Date>({{"no date", none}, {"", none}});
}

}  // namespace
}  // namespace kora
