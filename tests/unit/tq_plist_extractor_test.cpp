#include "update/tq_plist_extractor.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <fstream>

#include "daemon/embedded_plists.h"
#include "platform/mapped_file.h"
#include "platform/own_executable.h"
#include "support/executable_images.h"
#include "support/temp_dir.h"

namespace kora {
namespace {

using namespace test;

std::string plist(const std::string& label) {
    return "<plist version=\"1.0\"><dict><key>Label</key><string>" + label +
           "</string></dict></plist>";
}

const auto m32 = [](const Sects& s, bool big = kHostBig) { return machO(false, s, big); };
const auto m64 = [](const Sects& s, bool big = kHostBig) { return machO(true, s, big); };

Bytes patched(Bytes file, std::size_t at, std::uint32_t value) {
    std::memcpy(file.data() + at, &value, 4);  // host order
    return file;
}

const Sect kJob32{"__TEXT", "__launchd_plist", plist("thin32")};
const Sect kJob64{"__TEXT", "__launchd_plist", plist("thin64")};
const Sect kCode{"__TEXT", "__text", "code"};
const Sect kData{"__DATA", "__data", "data"};
const std::string kElfName = "__TEXT,__launchd_plist";
constexpr unsigned char kOtherOrder = kHostBig ? ELFDATA2LSB : ELFDATA2MSB;

std::optional<std::string> labelOf(const std::optional<PlistValue>& value) {
    const auto* dictionary = value ? value->as<PlistDictionary>() : nullptr;
    return dictionary ? dictionary->string("Label") : std::nullopt;
}

TEST(ATqPlistExtractor, FindsOnlyTheRightSectionAndNeverReadsPastTheEnd) {
    const struct {
        const char* behaviour;
        Bytes file;
        std::optional<std::string> label;  // of the property list found
        std::string section = "__launchd_plist";
    } rows[] = {
        // Offsets: m32 ncmds 16, cmdsize 28+4, 2nd section size 208+36, offset 208+40;
        // m64 nsects 184+64, section size 256+40; fat nfat_arch 4, first slice offset 16.
        // clang-format off
        {"thin 32-bit", m32({kCode, kJob32}), "thin32"},
        {"thin 64-bit", m64({kCode, kJob64}), "thin64"},
        {"a missing section", m64({kJob64}), {}, "__info_plist"},
        {"the section in __DATA", m64({{"__DATA", kJob32.name, plist("d")}}), {}},
        {"bytes that are no property list", m32({{"__TEXT", kJob32.name, "not a plist"}}), {}},
        {"first of two same-named sections", m64({kJob64, {"__TEXT", kJob32.name, plist("2")}}), "thin64"},
        {"a name filling 16 bytes", m64({{"__TEXT", "__launchd_plistX", plist("f")}}), "f", "__launchd_plistX"},
        {"after a __TEXT segment without it, the walk skips its sections, not cmdsize", patched(m32({kCode, kJob32}), 28 + 4, 8), "thin32"},
        {"a command of size 0 hides what follows", patched(m32({kCode, kJob32}), 28 + 4, 0), {}},
        {"thin 64-bit of the other byte order", m64({kJob64}, !kHostBig), {}},
        {"universal, second slice has it", fat({m32({kCode}), m64({kJob64})}), "thin64"},
        {"universal, first slice with it wins", fat({m32({kCode}), m32({kJob32}), m64({kJob64})}), "thin32"},
        {"universal, other byte order skipped", fat({m32({kJob32}, !kHostBig), m64({kJob64})}), "thin64"},
        {"universal, slice past the end skipped", patched(fat({m64({kJob64}), m32({kJob32})}), 16, 0x40404040), "thin32"},
        {"universal, table past the end", patched(fat({m64({kJob64})}), 4, 0xffff0000), "thin64"},
        {"universal, table longer than the file, slice at 0", patched(patched(fat({m64({kJob64})}), 4, 0xffff0000), 16, 0), {}},
        {"huge ncmds", patched(m32({kData, kJob32}), 16, 0xffffffff), {}, "__info_plist"},
        {"cmdsize past the end", patched(m32({kData, kJob32}), 28 + 4, 0x7fffffff), {}},
        {"huge nsects", patched(m64({kData, kJob64}), 184 + 64, 0xffffffff), {}, "__info_plist"},
        {"section offset past the end", patched(m32({kData, kJob32}), 208 + 40, 0xfffffff0), {}},
        {"section size past the end", patched(m32({kData, kJob32}), 208 + 36, 0xffffffff), {}},
        {"64-bit section size: only its low 32 bits count", patched(m64({kData, kJob64}), 256 + (kHostBig ? 40 : 44), 1), "thin64"},
        {"64-bit ELF", elf<true>(kElfName, plist("e64")), "e64"},
        {"32-bit ELF", elf<false>(kElfName, plist("e32")), "e32"},
        {"ELF of the other byte order", elf<true>(kElfName, plist("x"), SHT_PROGBITS, kOtherOrder), {}},
        {"ELF section without file bytes", elf<true>(kElfName, plist("x"), SHT_NOBITS), {}},
        // clang-format on
    };
    for (const auto& row : rows)
        EXPECT_EQ(labelOf(TqPlistExtractor::TqExtractPlist(std::span(row.file), row.section)),
                  row.label)
            << row.behaviour;
}

TEST(TruncatedFiles, YieldNothingAtEveryLengthShortOfTheWhole) {
    const auto launchdSection = [](const Bytes& file) {
        return TqPlistExtractor::TqMachOSection(std::span(file), "__TEXT", "__launchd_plist");
    };
    for (const Bytes& whole : {m32({kCode, kJob32}), m64({kJob64}), fat({m32({kJob32})}),
                               elf<true>(kElfName, "x"), elf<false>(kElfName, "x")}) {
        EXPECT_TRUE(launchdSection(whole));
        for (std::size_t length = 0; length < whole.size(); ++length) {
            // An exact-size copy, so that the address sanitizer sees any over-read.
            EXPECT_FALSE(launchdSection(Bytes(whole.begin(), whole.begin() + length))) << length;
        }
    }
}

TEST(FilesOnDisk, AreMappedAndMissingFoldersEmptyFilesAndFifosYieldNothing) {
    const TempDir folder;
    const Bytes image = fat({m64({kJob64})});
    std::ofstream(folder.path() / "korad", std::ios::binary)
        .write(reinterpret_cast<const char*>(image.data()), image.size());
    std::ofstream(folder.path() / "empty").close();
    ASSERT_EQ(::mkfifo((folder.path() / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(labelOf(TqPlistExtractor::TqExtractPlist(folder.path() / "korad", "__launchd_plist")),
              "thin64");
    EXPECT_TRUE(MappedFile::open(folder.path() / "empty")->bytes().empty());
    for (const char* name : {"empty", "missing", ".", "fifo"})
        EXPECT_FALSE(TqPlistExtractor::TqExtractPlist(folder.path() / name, "__launchd_plist"))
            << name;
}

// The keys of a description in the daemon's own executable, in order.
std::string keysIn(const char* section) {
    const auto value = TqPlistExtractor::TqExtractPlist(kOwnExecutablePath, section);
    std::string keys;
    if (const auto* dictionary = value ? value->as<PlistDictionary>() : nullptr)
        for (const auto& entry : dictionary->entries()) keys += entry.key + " ";
    return keys;
}

TEST(TheDaemonExecutable, CarriesBothDescriptionsWithTheirKeysInOrder) {
    EXPECT_EQ(embeddedBundleVersion(), "1.3.1.0");
    EXPECT_EQ(keysIn("__launchd_plist"),
              "Label KeepAlive RunAtLoad ThrottleInterval StandardOutPath StandardErrorPath "
              "MachServices ");
    EXPECT_EQ(keysIn("__info_plist"),
              "CFBundleIdentifier CFBundleInfoDictionaryVersion CFBundleName CFBundleVersion "
              "SMAuthorizedClients ");
    const auto section =
        TqPlistExtractor::TqMachOSection(kOwnExecutablePath, "__TEXT", "__launchd_plist");
    ASSERT_TRUE(section);
    EXPECT_EQ(std::string(section->begin(), section->end()), embeddedJobDescription());
}

}  // namespace
}  // namespace kora
