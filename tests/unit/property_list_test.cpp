#include "platform/property_list.h"

#include <gtest/gtest.h>
#include <plist/plist.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>

#include "support/temp_dir.h"

namespace kora {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes bytesOf(std::string_view text) { return Bytes(text.begin(), text.end()); }

std::string fileText(const std::filesystem::path& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

void writeFile(const std::filesystem::path& path, std::string_view text) {
    std::ofstream(path, std::ios::binary) << text;
}

PlistValue everyType() {
    PlistDictionary nested;
    nested.set("z-first", "kept in insertion order");
    nested.set("a-second", std::int64_t{-42});
    PlistDictionary root;
    root.set("string", "x<y & 'z' \"q\" åäö");
    root.set("empty", "");
    root.set("integer", std::int64_t{9007199254740993});
    root.set("negative", std::int64_t{-7});
    root.set("real", 2.5);
    root.set("true", true);
    root.set("false", false);
    root.set("date", dateFromUnixSeconds(1299506709));
    root.set("data", PlistValue::Data{0, 1, 2, 0xFF});
    root.set("array", PlistValue::Array{"one", std::int64_t{2}, PlistValue::Array{}});
    root.set("nested", nested);
    return root;
}

TEST(APropertyList, RoundTripsEveryValueTypeThroughAFile) {
    TempDir dir;
    const auto path = dir.path() / "all.plist";
    ASSERT_TRUE(writePropertyList(everyType(), path));
    const std::optional<PlistValue> back = readPropertyList(path);
    ASSERT_TRUE(back);
    EXPECT_EQ(*back, everyType());
    EXPECT_NE(fileText(path).find("<plist version=\"1.0\">"), std::string::npos);
}

TEST(APropertyList, ReadsTheBinaryForm) {
    plist_t root = plist_new_dict();
    plist_dict_set_item(root, "CFBundleIdentifier", plist_new_string("com.example.App"));
    plist_dict_set_item(root, "Count", plist_new_uint(3));
    char* bin = nullptr;
    uint32_t length = 0;
    plist_to_bin(root, &bin, &length);
    plist_free(root);
    const Bytes bytes(bin, bin + length);
    plist_to_bin_free(bin);

    const std::optional<PlistValue> value = parsePropertyList(bytes);
    ASSERT_TRUE(value && value->is<PlistDictionary>());
    const PlistDictionary& dictionary = *value->as<PlistDictionary>();
    EXPECT_EQ(dictionary.string("CFBundleIdentifier"), "com.example.App");
    EXPECT_EQ(*dictionary.find("Count")->as<std::int64_t>(), 3);
}

TEST(APropertyList, KeepsOtherRootKeysInAReadModifyWrite) {
    TempDir dir;
    const auto path = dir.path() / "registry.plist";
    PlistDictionary original;
    original.set("KoraDB", PlistDictionary{});
    original.set("UpdateDB", PlistDictionary{});
    original.set("LastKoraCheckDate", "2011-03-07 14:05:09 +0200");
    ASSERT_TRUE(writePropertyList(original, path));

    std::optional<PlistDictionary> read = readPropertyListDictionary(path);
    ASSERT_TRUE(read);
    PlistDictionary apps;
    apps.set("com.example.App", PlistDictionary{});
    read->set("KoraDB", apps);
    ASSERT_TRUE(writePropertyList(*read, path));

    const std::optional<PlistDictionary> after = readPropertyListDictionary(path);
    ASSERT_TRUE(after);
    ASSERT_EQ(after->size(), 3u);
    EXPECT_EQ(after->entries()[0].key, "KoraDB");
    EXPECT_EQ(after->string("LastKoraCheckDate"), "2011-03-07 14:05:09 +0200");
    EXPECT_NE(after->dictionary("KoraDB")->find("com.example.App"), nullptr);
}

TEST(APropertyList, ReplacesTheFileAndKeepsItsMode) {
    TempDir dir;
    const auto path = dir.path() / "prefs.plist";
    writeFile(path, "old");
    ASSERT_EQ(::chmod(path.c_str(), 0600), 0);
    ASSERT_TRUE(writePropertyList(PlistValue("new"), path));
    struct stat info {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0600u);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()),
                            std::filesystem::directory_iterator()),
              1);
}

TEST(APropertyList, FailsToWriteIntoAMissingFolderWithoutLeavingAnything) {
    TempDir dir;
    EXPECT_FALSE(writePropertyList(PlistValue("x"), dir.path() / "missing" / "a.plist"));
}

TEST(APropertyList, WritesControlCharactersAndBadUtf8SoTheFileStaysReadable) {
    TempDir dir;
    const auto path = dir.path() / "odd.plist";
    PlistDictionary root;
    root.set("bell\x07", std::string("a\x01" "b\xff" "c\td"));
    ASSERT_TRUE(writePropertyList(root, path));
    const std::optional<PlistDictionary> back = readPropertyListDictionary(path);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->string("bell\xEF\xBF\xBD"), "a\xEF\xBF\xBD" "b\xEF\xBF\xBD" "c\td");
}

struct UnreadableCase {
    const char* name;
    std::string content;
};

class AnUnreadablePropertyList : public testing::TestWithParam<UnreadableCase> {};

TEST_P(AnUnreadablePropertyList, GivesNoValue) {
    EXPECT_FALSE(parsePropertyList(bytesOf(GetParam().content)));
}

std::string nested(const char* open, const char* close, int depth) {
    std::string text = "<?xml version=\"1.0\"?><plist version=\"1.0\">";
    for (int i = 0; i < depth; ++i) text += open;
    for (int i = 0; i < depth; ++i) text += close;
    return text + "</plist>";
}

INSTANTIATE_TEST_SUITE_P(
    Cases, AnUnreadablePropertyList,
    testing::Values(UnreadableCase{"Empty", ""}, UnreadableCase{"NotXml", "hello world"},
                    UnreadableCase{"Truncated", "<?xml version=\"1.0\"?><plist><dict><key>a"},
                    UnreadableCase{"TruncatedBinary", "bplist00\xd1\x01\x02"},
                    UnreadableCase{"DeepArrays", nested("<array>", "</array>", 200000)},
                    UnreadableCase{"DeepDicts", nested("<dict><key>k</key>", "</dict>", 5000)},
                    UnreadableCase{"OverTheSizeCap", std::string(kPlistMaxBytes + 1, ' ')}),
    [](const auto& info) { return info.param.name; });

TEST(APropertyList, AcceptsNestingUpToTheLimit) {
    EXPECT_TRUE(parsePropertyList(bytesOf(nested("<array>", "</array>", kPlistMaxDepth))));
    EXPECT_FALSE(parsePropertyList(bytesOf(nested("<array>", "</array>", kPlistMaxDepth + 1))));
}

// A binary list whose array refers to itself, and one nested deeper than the
// limit: both are refused before libplist walks them.
Bytes binaryArrays(std::size_t count, bool cyclic) {
    Bytes bytes = bytesOf("bplist00");
    std::vector<std::uint64_t> offsets;
    for (std::size_t i = 0; i < count; ++i) {
        offsets.push_back(bytes.size());
        const bool last = i + 1 == count;
        if (last && !cyclic) {
            bytes.push_back(0xA0);  // empty array
        } else {
            bytes.push_back(0xA1);  // array of one: a 4-byte reference
            const std::uint32_t child = last ? 0 : static_cast<std::uint32_t>(i + 1);
            for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back((child >> shift) & 0xFF);
        }
    }
    const std::uint64_t table = bytes.size();
    for (std::uint64_t offset : offsets) {
        for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back((offset >> shift) & 0xFF);
    }
    const std::uint64_t trailer[] = {count, 0, table};
    for (int i = 0; i < 6; ++i) bytes.push_back(0);
    bytes.push_back(4);  // offset size
    bytes.push_back(4);  // reference size
    for (std::uint64_t field : trailer) {
        for (int shift = 56; shift >= 0; shift -= 8) bytes.push_back((field >> shift) & 0xFF);
    }
    return bytes;
}

TEST(APropertyList, RefusesCyclicAndDeepBinaryInput) {
    EXPECT_TRUE(parsePropertyList(binaryArrays(10, false)));
    EXPECT_FALSE(parsePropertyList(binaryArrays(10, true)));
    EXPECT_FALSE(parsePropertyList(binaryArrays(100000, false)));
}

TEST(APropertyList, GivesNoValueForAMissingFileOrANonDictionaryRoot) {
    TempDir dir;
    EXPECT_FALSE(readPropertyList(dir.path() / "absent.plist"));
    ASSERT_TRUE(writePropertyList(PlistValue::Array{}, dir.path() / "array.plist"));
    EXPECT_FALSE(readPropertyListDictionary(dir.path() / "array.plist"));
}

}  // namespace
}  // namespace kora
