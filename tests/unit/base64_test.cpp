#include "codecs/base64.h"

#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <stdexcept>

using kora::base64Encoding;
using kora::ByteBuffer;
using kora::dataWithBase64EncodedString;

namespace {

ByteBuffer bytes(std::string_view text) {
    return ByteBuffer(text.begin(), text.end());
}

TEST(Base64, DecodesLenientlyButRejectsLoneSymbolsForeignCharactersAndNoString) {
    const std::pair<std::string, std::optional<std::string>> rows[] = {
        {"", ""},
        {"YQ", "a"},
        {"Y Q = =\n", "a"},
        {"Y=WJj", "abc"},
        {"\tYW\r\nJj\v\f", "abc"},
        {"YR", "a"},  // leftover bits need not be zero
        {"Y", std::nullopt},
        {"YWJjZ", std::nullopt},
        {"YW*j", std::nullopt},
        {"YWJj\xc3\xa9", std::nullopt},
        {std::string("YQ\0", 3), std::nullopt}};
    for (const auto& [input, expected] : rows) {
        const auto want = expected ? std::optional(bytes(*expected)) : std::nullopt;
        EXPECT_EQ(dataWithBase64EncodedString(input), want) << "input: " << input;
    }
    EXPECT_THAT([] { dataWithBase64EncodedString(std::nullopt); },
                testing::ThrowsMessage<std::invalid_argument>("Error: String must not be nil"));
}

// Also covers the padding of every final group length and the empty buffer.
TEST(Base64, AgreesWithGLibOnRandomBuffers) {
    std::mt19937 random(20110307);
    for (int round = 0; round < 300; ++round) {
        ByteBuffer input(std::uniform_int_distribution<std::size_t>(0, 70)(random));
        for (auto& byte : input) byte = static_cast<std::uint8_t>(random());

        g_autofree gchar* theirs = g_base64_encode(input.data(), input.size());
        const std::string ours = base64Encoding(input);
        ASSERT_EQ(ours, theirs);
        gsize length = 0;
        g_autofree guchar* decoded = g_base64_decode(ours.c_str(), &length);
        EXPECT_EQ(ByteBuffer(decoded, decoded + length), input);
        EXPECT_EQ(dataWithBase64EncodedString(std::string(theirs)), input);
    }
}

}  // namespace
