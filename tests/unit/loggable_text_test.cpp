#include "platform/loggable_text.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/input_limits.h"

namespace kora {
namespace {

std::string repeated(std::string_view piece, std::size_t times) {
    std::string text;
    for (std::size_t i = 0; i < times; ++i) text += piece;
    return text;
}

struct Row {
    std::string input;
    std::string logged;
    std::string traced;  // how loggableTrace shows the same input
};

// clang-format off
const Row kRows[] = {
    {"com.olvara.app 1.0 /Applications/A B.app", "com.olvara.app 1.0 /Applications/A B.app",
                                                  "com.olvara.app 1.0 /Applications/A B.app"},
    {"one\ntwo",                    "one\\ntwo",                   "one\ntwo"},
    {"tab\there\r\n",               "tab\\there\\r\\n",            "tab\there\\r\n"},
    {"\x1b[2Jcleared",              "\\x1b[2Jcleared",             "\\x1b[2Jcleared"},
    {std::string("nul\0bell\x07 del\x7f", 14),
                                    "nul\\x00bell\\x07 del\\x7f",  "nul\\x00bell\\x07 del\\x7f"},
    {"a\\nb",                       "a\\\\nb",                     "a\\\\nb"},
    // C1 controls (U+0085 next line, U+009B CSI) and the first character after them.
    {"\xc2\x85x\xc2\x9b" "1m\xc2\xa0",  "\\u0085x\\u009b1m\xc2\xa0", "\\u0085x\\u009b1m\xc2\xa0"},
    {"Hyv\xc3\xa4\xc3\xa4 \xe2\x82\xac \xf0\x9f\x98\x80",
     "Hyv\xc3\xa4\xc3\xa4 \xe2\x82\xac \xf0\x9f\x98\x80",
     "Hyv\xc3\xa4\xc3\xa4 \xe2\x82\xac \xf0\x9f\x98\x80"},
    // Not UTF-8: Latin-1, a stray continuation byte, an overlong '/', a surrogate,
    // a code point past U+10FFFF and a sequence cut short at the end.
    {"caf\xe9 \x80 \xc0\xaf \xed\xa0\x80 \xf4\x90\x80\x80 \xe2\x82",
     "caf\\xe9 \\x80 \\xc0\\xaf \\xed\\xa0\\x80 \\xf4\\x90\\x80\\x80 \\xe2\\x82",
     "caf\\xe9 \\x80 \\xc0\\xaf \\xed\\xa0\\x80 \\xf4\\x90\\x80\\x80 \\xe2\\x82"},
    {"", "", ""},
};
// clang-format on

TEST(LoggableText, EscapesControlCharactersAndBytesThatAreNotUtf8) {
    for (const Row& row : kRows) {
        EXPECT_EQ(loggable(row.input), row.logged) << row.input;
        EXPECT_EQ(loggableTrace(row.input), row.traced) << row.input;
    }
}

TEST(LoggableText, CutsAnOutsideTextAfterTheCapWithItsLengthNoted) {
    const std::size_t cap = kMaxLoggedTextBytes;
    const std::string euro = "\xe2\x82\xac";
    // clang-format off
    const std::pair<std::string, std::string> rows[] = {
        {std::string(cap, 'a'),       std::string(cap, 'a')},
        {std::string(cap + 1, 'a'),   std::string(cap, 'a') + "... (1025 bytes)"},
        // The cut falls inside the euro sign: the whole character goes.
        {std::string(cap - 1, 'a') + euro, std::string(cap - 1, 'a') + "... (1026 bytes)"},
        {std::string(cap - 3, 'a') + euro + "b",
         std::string(cap - 3, 'a') + euro + "... (1025 bytes)"},
        // The cap counts the text's own bytes; escapes do not shift the cut.
        {std::string(cap, '\n'),      repeated("\\n", cap)},
        {std::string(cap + 1, '\n'),  repeated("\\n", cap) + "... (1025 bytes)"},
        {std::string(cap - 1, 'a') + "\xff\xff",
         std::string(cap - 1, 'a') + "\\xff... (1025 bytes)"},
        {std::string(41 * 1024 * 1024, 'x'), std::string(cap, 'x') + "... (42991616 bytes)"},
    };
    // clang-format on
    for (const auto& [input, expected] : rows) {
        EXPECT_EQ(loggable(input), expected) << input.size() << " bytes";
    }
}

TEST(LoggableText, KeepsAWholeTraceHoweverLong) {
    EXPECT_EQ(loggableTrace(repeated("<a>\x1b</a>\n", 1000)), repeated("<a>\\x1b</a>\n", 1000));
}

}  // namespace
}  // namespace kora
