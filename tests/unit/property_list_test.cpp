#include "platform/property_list.h"

#include <gtest/gtest.h>
#include <plist/plist.h>
#include <sys/stat.h>

#include <cmath>
#include <fstream>
#include <sstream>

#include "platform/plist_guard.h"
#include "support/nested_plist.h"
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

// Large dictionaries find their keys through an index that insertions,
// erasures and copies must keep true.
TEST(APlistDictionary, KeepsKeysInOrderAndFindsEachWhateverItsSize) {
    PlistDictionary dictionary;
    for (int i = 0; i < 200; ++i) dictionary.set("k" + std::to_string(i), i);
    dictionary.set("k7", 700);
    EXPECT_TRUE(dictionary.erase("k3"));
    EXPECT_FALSE(dictionary.erase("k3"));
    const PlistDictionary copy = dictionary;
    dictionary.set("k3", 3);
    ASSERT_EQ(copy.size(), 199u);
    EXPECT_EQ(copy.find("k3"), nullptr);
    EXPECT_EQ(copy.entries()[3].key, "k4");
    EXPECT_EQ(dictionary.entries().back().key, "k3");
    for (int i = 0; i < 200; ++i) {
        const std::string key = "k" + std::to_string(i);
        ASSERT_NE(dictionary.find(key), nullptr) << key;
        EXPECT_EQ(*dictionary.find(key), PlistValue(i == 7 ? 700 : i)) << key;
        if (i == 3) continue;
        EXPECT_EQ(copy.find(key), &copy.entries()[i < 3 ? i : i - 1].value) << key;
    }
    EXPECT_EQ(dictionary.find("k200"), nullptr);
}

// libplist's own tree of a value, for comparing our writer with its output.
plist_t libplistNode(const PlistValue& value) {
    if (const auto* text = value.as<std::string>()) return plist_new_string(text->c_str());
    if (const auto* number = value.as<std::int64_t>()) return plist_new_uint(*number);
    if (const auto* number = value.as<double>()) return plist_new_real(*number);
    if (const auto* flag = value.as<bool>()) return plist_new_bool(*flag);
    if (const auto* date = value.as<Date>()) {
        return plist_new_date(static_cast<int32_t>(unixSeconds(*date) - 978307200), 0);
    }
    if (const auto* data = value.as<PlistValue::Data>()) {
        return plist_new_data(reinterpret_cast<const char*>(data->data()), data->size());
    }
    if (const auto* array = value.as<PlistValue::Array>()) {
        plist_t node = plist_new_array();
        for (const PlistValue& item : *array) plist_array_append_item(node, libplistNode(item));
        return node;
    }
    plist_t node = plist_new_dict();
    for (const auto& [key, item] : value.as<PlistDictionary>()->entries()) {
        plist_dict_set_item(node, key.c_str(), libplistNode(item));
    }
    return node;
}

std::string libplistXml(const PlistValue& value) {
    plist_t node = libplistNode(value);
    char* xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(node, &xml, &length);
    std::string text(xml, length);
    plist_to_xml_free(xml);
    plist_free(node);
    return text;
}

// Files written before we wrote the XML ourselves came from libplist; a byte
// that differs would make the registry rewrite a file it did not change.
TEST(APropertyList, WritesTheXmlByteForByteAsLibplistDoes) {
    PlistValue::Data bytes(200);
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i * 7);
    // Base64 lines narrow with depth down to eight tabs, then stay as they are.
    PlistValue deepData = bytes;
    for (int depth = 0; depth < 10; ++depth) deepData = PlistValue::Array{deepData, bytes};
    PlistDictionary tree = *everyType().as<PlistDictionary>();
    tree.set("a<b>&c\"d'e", "]]> & <tag> \"quoted\" 'single'\t\n\r end");
    tree.set("", "empty key");
    tree.set("reals", PlistValue::Array{0.1, 3.0, -0.0, 1e300, 1e-300, 4.9e-324, 1e17, -2.5,
                                        std::nan(""), HUGE_VAL, -HUGE_VAL});
    tree.set("dates", PlistValue::Array{dateFromUnixSeconds(0), dateFromUnixSeconds(-1000000000),
                                        dateFromUnixSeconds(1299506709) +
                                            std::chrono::microseconds(123456)});
    tree.set("data", PlistValue::Array{PlistValue::Data{}, PlistValue::Data{1}, bytes, deepData});
    tree.set("empty", PlistValue::Array{PlistDictionary{}, PlistValue::Array{}});
    for (const PlistValue& value : {PlistValue(tree), PlistValue("root string"), PlistValue(bytes)}) {
        EXPECT_EQ(propertyListXml(value), libplistXml(value));
    }
    // What XML 1.0 cannot carry, in keys and values (bad UTF-8, controls, NUL,
    // U+FFFE), is written as U+FFFD so every XML reader accepts the file;
    // libplist writes it raw.
    PlistDictionary odd;
    odd.set("bell\x07", std::string("a\x01" "b\xff" "c\0d\xEF\xBF\xBE", 10));
    PlistDictionary replaced;
    const char* r = "\xEF\xBF\xBD";
    replaced.set(std::string("bell") + r, std::string("a") + r + "b" + r + "c" + r + "d" + r);
    EXPECT_EQ(propertyListXml(odd), libplistXml(replaced));
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

TEST(AnXmlText, IsValidUtf8OfCharactersXml10CanCarry) {
    const std::pair<std::string, bool> rows[] = {
        {"", true}, {"\t\n\r plain", true}, {"\x1f", false}, {std::string("\0", 1), false},
        {"\xED\x9F\xBF", true},   // U+D7FF
        {"\xED\xA0\x80", false},  // U+D800, a surrogate: not UTF-8 either
        {"\xEE\x80\x80", true},   // U+E000
        {"\xEF\xBF\xBD", true},   // U+FFFD
        {"\xEF\xBF\xBE", false},  // U+FFFE
        {"\xEF\xBF\xBF", false},  // U+FFFF
        {"\xF0\x90\x80\x80", true},  // U+10000
        {"\xF4\x8F\xBF\xBF", true},  // U+10FFFF
        {"\xF4\x90\x80\x80", false}, // past U+10FFFF
        {"\xC3", false}, {"\xff", false},
    };
    for (const auto& [text, expected] : rows) EXPECT_EQ(isXmlText(text), expected) << text;
}

// A link to /dev/zero once lent the registry its mode 0666.
TEST(APropertyList, ReplacesASymbolicLinkByARegularFileWithMode0644) {
    TempDir dir;
    const auto path = dir.path() / "link.plist";
    std::filesystem::create_symlink("/dev/zero", path);
    ASSERT_TRUE(writePropertyList(PlistValue("new"), path));
    struct stat info {};
    ASSERT_EQ(::lstat(path.c_str(), &info), 0);
    EXPECT_TRUE(S_ISREG(info.st_mode));
    EXPECT_EQ(info.st_mode & 07777, 0644u);
}

TEST(APropertyList, GivesNoValueForUnreadableInput) {
    const std::pair<const char*, std::string> rows[] = {
        {"empty", ""},
        {"not XML", "hello world"},
        {"truncated", "<?xml version=\"1.0\"?><plist><dict><key>a"},
        {"truncated binary", "bplist00\xd1\x01\x02"},
        {"deep arrays", nestedPlist("<array>", "</array>", 200000)},
        {"deep dictionaries", nestedPlist("<dict><key>k</key>", "</dict>", 5000)},
    };
    for (const auto& [name, content] : rows) {
        EXPECT_FALSE(parsePropertyList(bytesOf(content))) << name;
    }
}

TEST(APropertyList, AcceptsNestingUpToTheLimit) {
    // A scalar in the deepest container adds no level; comments add none either.
    const std::pair<const char*, const char*> shapes[] = {
        {"<array>", "</array>"},
        {"<array><string>s</string>", "<true/></array>"},
        {"<array><!-- <array> --><?pi <array>?>", "</array>"},
    };
    for (const auto& [open, close] : shapes) {
        EXPECT_TRUE(parsePropertyList(bytesOf(nestedPlist(open, close, kPlistMaxDepth)))) << open;
        EXPECT_FALSE(parsePropertyList(bytesOf(nestedPlist(open, close, kPlistMaxDepth + 1))))
            << open;
    }
}

// End tags hidden where the parser does not see them once took the nesting
// count down, and libplist then recursed through 100,000 levels.
TEST(APropertyList, CountsNestingAsTheParserSeesIt) {
    const std::pair<const char*, const char*> hiders[] = {
        {"<array><!--</array>-->", "</array>"},
        {"<array><?x </array>?>", "</array>"},
        {"<array><![CDATA[</array>]]>", "</array>"},
        {"<array a=\"</array>\">", "</array>"},
        {"<array a='></array>'>", "</array>"},
        {"<string><array>", "</array></string>"},
    };
    for (const auto& [open, close] : hiders) {
        EXPECT_FALSE(parsePropertyList(bytesOf(nestedPlist(open, close, 100000)))) << open;
    }
    // libplist ends an internal DTD subset at the first "]>", even in a comment.
    const std::string subset = "<!DOCTYPE p [ <!-- ]>" + nestedPlist("<array>", "</array>", 100000) +
                               " --> ]><plist><true/></plist>";
    EXPECT_FALSE(parsePropertyList(bytesOf(subset)));
    EXPECT_TRUE(parsePropertyList(bytesOf(
        "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
        "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\"><plist><array a=\">\"/></plist>")));
}

TEST(APropertyList, AcceptsInputUpToTheSizeCap) {
    std::string text = "<plist><true/></plist>";
    text.resize(kPlistMaxBytes, ' ');
    EXPECT_TRUE(parsePropertyList(bytesOf(text)));
    text += ' ';
    EXPECT_FALSE(parsePropertyList(bytesOf(text)));
}

TEST(APropertyList, WritesNestingUpToTheLimitOnly) {
    TempDir dir;
    PlistValue value = PlistValue::Array{};
    for (std::size_t depth = 1; depth < kPlistMaxDepth; ++depth) value = PlistValue::Array{value};
    ASSERT_TRUE(writePropertyList(value, dir.path() / "deep.plist"));
    EXPECT_EQ(readPropertyList(dir.path() / "deep.plist"), value);
    EXPECT_FALSE(writePropertyList(PlistValue::Array{value}, dir.path() / "deeper.plist"));
}

// A binary list from its objects' encoded bytes; object 0 is the root and
// references are four bytes wide.
Bytes binaryPlist(const std::vector<Bytes>& objects) {
    Bytes bytes = bytesOf("bplist00");
    std::vector<std::uint64_t> offsets;
    for (const Bytes& object : objects) {
        offsets.push_back(bytes.size());
        bytes.insert(bytes.end(), object.begin(), object.end());
    }
    const std::uint64_t table = bytes.size();
    for (std::uint64_t offset : offsets) {
        for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back((offset >> shift) & 0xFF);
    }
    for (int i = 0; i < 6; ++i) bytes.push_back(0);
    bytes.push_back(4);  // offset size
    bytes.push_back(4);  // reference size
    for (std::uint64_t field : {std::uint64_t{objects.size()}, std::uint64_t{0}, table}) {
        for (int shift = 56; shift >= 0; shift -= 8) bytes.push_back((field >> shift) & 0xFF);
    }
    return bytes;
}

Bytes arrayOf(const std::vector<std::uint32_t>& children) {
    const auto count = static_cast<std::uint16_t>(children.size());
    // Fifteen items or more: the length follows as a two-byte integer object.
    Bytes bytes = count < 15 ? Bytes{std::uint8_t(0xA0 | count)}
                             : Bytes{0xAF, 0x11, std::uint8_t(count >> 8), std::uint8_t(count)};
    for (std::uint32_t child : children) {
        for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back((child >> shift) & 0xFF);
    }
    return bytes;
}

// A chain of arrays, each holding the next; the last is empty, or holds the
// first again.
Bytes arrayChain(std::uint32_t count, bool cyclic) {
    std::vector<Bytes> objects;
    for (std::uint32_t i = 0; i + 1 < count; ++i) objects.push_back(arrayOf({i + 1}));
    objects.push_back(cyclic ? arrayOf({0}) : Bytes{0xA0});
    return binaryPlist(objects);
}

TEST(APropertyList, RefusesCyclicAndDeepBinaryInput) {
    EXPECT_TRUE(parsePropertyList(arrayChain(10, false)));
    EXPECT_TRUE(parsePropertyList(arrayChain(kPlistMaxDepth, false)));
    EXPECT_FALSE(parsePropertyList(arrayChain(kPlistMaxDepth + 1, false)));
    EXPECT_FALSE(parsePropertyList(arrayChain(10, true)));
    EXPECT_FALSE(parsePropertyList(arrayChain(100000, false)));
}

// Each array holds the next one twice, so the tree doubles with every object:
// 600 bytes that libplist would expand into 2^41 values.
TEST(APropertyList, RefusesSharedReferencesThatWouldExpandPastTheNodeCap) {
    std::vector<Bytes> objects;
    for (std::uint32_t i = 0; i < 40; ++i) objects.push_back(arrayOf({i + 1, i + 1}));
    objects.push_back(Bytes{0xA0});
    EXPECT_FALSE(parsePropertyList(binaryPlist(objects)));
}

// The root holds `outer` references to one array of `inner` references to one
// empty array: 1 + outer * (1 + inner) values.
Bytes sharedFanOut(std::uint32_t outer, std::uint32_t inner) {
    return binaryPlist({arrayOf(std::vector<std::uint32_t>(outer, 1)),
                        arrayOf(std::vector<std::uint32_t>(inner, 2)), Bytes{0xA0}});
}

TEST(APropertyList, AcceptsSharedReferencesUpToTheNodeCap) {
    static_assert(kPlistMaxNodes == 1 + 999 * (1 + 1000));
    EXPECT_TRUE(parsePropertyList(sharedFanOut(999, 1000)));
    EXPECT_FALSE(parsePropertyList(sharedFanOut(1000, 999)));  // one value more
}

// libplist aborts the process on such keys instead of failing the parse.
TEST(APropertyList, RefusesBinaryDictionaryKeysThatAreNotPlainStrings) {
    const Bytes dictionary{0xD1, 0, 0, 0, 1, 0, 0, 0, 2};
    const Bytes value{0x51, 'v'};
    EXPECT_TRUE(parsePropertyList(binaryPlist({dictionary, {0x51, 'k'}, value})));
    EXPECT_FALSE(parsePropertyList(binaryPlist({dictionary, {0x43, 'x', 'y', 'z'}, value})));
    EXPECT_FALSE(parsePropertyList(binaryPlist({dictionary, {0x53, 'a', 0, 'b'}, value})));
    EXPECT_FALSE(parsePropertyList(binaryPlist({dictionary, {0x61, 0, 0}, value})));
}

TEST(APropertyList, GivesNoValueForAMissingFileAFifoOrANonDictionaryRoot) {
    TempDir dir;
    EXPECT_FALSE(readPropertyList(dir.path() / "absent.plist"));
    // Opening a FIFO for reading would wait for a writer forever.
    ASSERT_EQ(::mkfifo((dir.path() / "fifo.plist").c_str(), 0600), 0);
    EXPECT_FALSE(readPropertyList(dir.path() / "fifo.plist"));
    EXPECT_FALSE(readPropertyList(dir.path()));
    ASSERT_TRUE(writePropertyList(PlistValue::Array{}, dir.path() / "array.plist"));
    EXPECT_FALSE(readPropertyListDictionary(dir.path() / "array.plist"));
}

}  // namespace
}  // namespace kora
