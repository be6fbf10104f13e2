#include "services/value_codecs.h"

#include <gtest/gtest.h>
#include <libxml/parser.h>

#include <cmath>
#include <memory>

#include "services/service_namespaces.h"
#include "services/xml_escaping.h"

using kora::ByteBuffer;
using kora::USBoolean;
using kora::ValueCodec;

namespace {

using Doc = std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)>;
template <typename T>
using Rows = std::vector<std::pair<std::string, std::optional<T>>>;

Doc parse(const std::string& xml) {
    return Doc(xmlParseMemory(xml.data(), static_cast<int>(xml.size())), xmlFreeDoc);
}

// Each row is an element's XML and the value the codec of T reads from it.
template <typename T>
void expectReads(const Rows<T>& rows) {
    for (const auto& [element, expected] : rows) {
        Doc doc = parse(element);
        EXPECT_EQ(ValueCodec<T>::deserializeNode(xmlDocGetRootElement(doc.get())), expected)
            << element;
    }
}

// Writes the value under a root that declares "KORA", serialises the document
// the way envelopes are written and reads the value back from the parsed text.
// Also gives the value element's line of the text.
template <typename T>
std::pair<std::optional<T>, std::string> roundTrip(const T& value) {
    Doc doc(xmlNewDoc(BAD_CAST "1.0"), xmlFreeDoc);
    xmlDocSetRootElement(doc.get(), xmlNewDocNode(doc.get(), nullptr, BAD_CAST "Root", nullptr));
    xmlNewNs(doc->children, BAD_CAST kora::KoraServiceNamespace, BAD_CAST "KORA");
    xmlAddChild(doc->children, ValueCodec<T>::xmlNodeForDoc(value, doc.get(), "Field", "KORA"));
    xmlChar* text = nullptr;
    int length = 0;
    xmlDocDumpFormatMemory(doc.get(), &text, &length, 1);
    const std::string xml(reinterpret_cast<char*>(text), length);
    xmlFree(text);
    Doc parsed = parse(xml);
    const std::size_t line = xml.find("<KORA:Field");
    return {ValueCodec<T>::deserializeNode(xmlFirstElementChild(parsed->children)),
            xml.substr(line, xml.find('\n', line) - line)};
}

TEST(XMLEscaping, EscapesTheFiveEntitiesOnceAndRestoresTheAmpersandLast) {
    const std::pair<const char*, const char*> rows[] = {{"x<y & 'z'", "x&lt;y &amp; &apos;z&apos;"},
                                                        {"\"", "&quot;"},
                                                        {"a>b", "a&gt;b"},
                                                        {"&#60;", "&amp;#60;"}};
    for (const auto& [plain, escaped] : rows) {
        EXPECT_EQ(kora::stringByEscapingXML(plain), escaped);
        EXPECT_EQ(kora::stringByUnescapingXML(escaped), plain);
    }
    EXPECT_EQ(kora::stringByUnescapingXML("&amp;lt; &#60;"), "&lt; &#60;");
}

TEST(StringCodec, KeepsMarkupCharactersThroughARealDocument) {
    // Reading unescapes once more, so entity text inside a value does not survive, and
    // an empty element has no text at all.
    const std::pair<std::string, std::optional<std::string>> rows[] = {
        {"x<y & 'z'", "x<y & 'z'"},     {"\"q\" >", "\"q\" >"},
        {"caf\xc3\xa9", "caf\xc3\xa9"}, {" ", " "},
        {"&amp;lt;", "&lt;"},           {"", std::nullopt}};
    for (const auto& [text, expected] : rows) EXPECT_EQ(roundTrip(text).first, expected);
}

TEST(StringCodec, ReadsDirectTextAndUnescapesItOnceMore) {
    expectReads<std::string>({{"<v>a &amp;lt; b</v>", "a < b"},
                              {"<v/>", std::nullopt},
                              {"<v><![CDATA[x&]]>y</v>", "x&y"},
                              {"<v>a<b>skip</b>c</v>", "ac"},
                              {"<v><b>only a child</b></v>", std::nullopt}});
}

TEST(NumberCodec, WritesWholeNumbersAsPlainDigits) {
    EXPECT_EQ(roundTrip(3.0),
              std::pair(std::optional(3.0), std::string("<KORA:Field>3</KORA:Field>")));
    EXPECT_EQ(roundTrip(-42.0).second, "<KORA:Field>-42</KORA:Field>");
    EXPECT_EQ(roundTrip(1e20).second, "<KORA:Field>100000000000000000000</KORA:Field>");
    EXPECT_EQ(roundTrip(0.1).first, 0.1);
}

TEST(NumberCodec, ReadsTheLongestDecimalPrefixAndZeroOtherwise) {
    expectReads<double>({{"<v>  42abc</v>", 42},
                         {"<v>abc</v>", 0},
                         {"<v/>", 0},
                         {"<v>-1.5e2x</v>", -150},
                         {"<v>+.5</v>", 0.5},
                         {"<v>7e</v>", 7},
                         {"<v>0x10</v>", 0},
                         {"<v>inf</v>", 0},
                         {"<v>1e999</v>", HUGE_VAL}});
}

TEST(ValueCodecs, ReadBooleansBytesAndDatesOnlyFromWellFormedText) {
    expectReads<USBoolean>({{"<v>true</v>", USBoolean(true)},
                            {"<v>false</v>", USBoolean(false)},
                            {"<v>TRUE</v>", std::nullopt},
                            {"<v>1</v>", std::nullopt},
                            {"<v/>", std::nullopt}});
    expectReads<ByteBuffer>({{"<v>YW*j</v>", std::nullopt}, {"<v/>", std::nullopt}});
    expectReads<kora::Date>({{"<v>no date</v>", std::nullopt}, {"<v/>", std::nullopt}});
}

TEST(ValueCodecs, CarryBooleansBytesAndDatesThroughARealDocument) {
    EXPECT_EQ(roundTrip(USBoolean(true)).second, "<KORA:Field>true</KORA:Field>");
    const ByteBuffer bytes{0, 1, 0x3c, 0x26, 0xfe, 0xff};
    EXPECT_EQ(roundTrip(bytes).first, bytes);
    const kora::Date date = kora::dateFromUnixSeconds(1299506709);
    EXPECT_EQ(roundTrip(date),
              std::pair(std::optional(date),
                        std::string("<KORA:Field>2011-03-07T14:05:09Z</KORA:Field>")));
}

}  // namespace
