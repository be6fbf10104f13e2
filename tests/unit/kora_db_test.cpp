#include "registry/kora_db.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <array>
#include <fstream>
#include <sstream>
#include <tuple>

#include "platform/logging.h"
#include "support/nested_plist.h"
#include "support/temp_dir.h"

namespace kora {
namespace {

namespace fs = std::filesystem;
using Entries = std::vector<std::pair<std::string, PlistValue>>;

PlistDictionary dictionaryOf(const Entries& entries) {
    PlistDictionary dictionary;
    for (const auto& [key, value] : entries) dictionary.set(key, value);
    return dictionary;
}

std::shared_ptr<KoraUpdate> updateOf(const Entries& stored) {
    return std::make_shared<KoraUpdate>(dictionaryOf(stored));
}

// Writes a property list, creating its folder.
void write(const fs::path& path, const Entries& entries) {
    fs::create_directories(path.parent_path());
    writePropertyList(dictionaryOf(entries), path);
}

std::string fileText(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

class ARegistry : public testing::Test {
  protected:
    ARegistry() {
        setLogSink([this](LogChannel, int, const std::string& text) { lines.push_back(text); });
    }
    ~ARegistry() override { setLogSink({}); }

    auto open(std::size_t maxFileBytes = kPlistMaxBytes) const {
        return std::make_unique<KoraDB>(file, workspace, preferences, maxFileBytes);
    }
    PlistDictionary onDisk() const { return readPropertyListDictionary(file).value(); }
    fs::path makeBundle(const fs::path& relative, const std::string& identifier,
                        const std::string& version = "1") const {
        write(applications / relative / "Contents/Info.plist",
              {{"CFBundleIdentifier", identifier}, {"CFBundleShortVersionString", version}});
        return applications / relative;
    }

    TempDir temp;
    const fs::path file = temp.path() / "com.olvara.korad.plist";
    const fs::path preferences = temp.path() / "Preferences";
    const fs::path applications = temp.path() / "Applications";
    LiveWorkspace workspace{applications};
    std::vector<std::string> lines;
};

TEST_F(ARegistry, ReadsBackWhatAnotherRegistryWrote) {
    {
        auto db = open();
        db->addApplicationWithIdentifier("com.a", "I", "P", "1.0", "/A.app", std::nullopt);
        db->updateInfoForUpdateWithIdentifier("com.a", updateOf({{"versionTo", "2.0"}}));
    }
    // Five fields: the entry repeats neither its key nor the absent brand.
    const PlistDictionary entry = *onDisk().dictionary("KoraDB")->dictionary("com.a");
    EXPECT_EQ(entry.size(), 5u);

    auto db = open();
    const auto application = db->registeredApplicationForIdentifier("com.a");
    EXPECT_EQ(application->identifier(), "com.a");
    EXPECT_EQ(application->serialize(), entry);
    EXPECT_EQ(db->getUpdateInfoForIdentifier("com.a")->versionTo(), "2.0");
}

TEST_F(ARegistry, WritesOnlyItsOwnSectionAndKeepsTheOtherKeysAsOnDisk) {
    auto db = open();
    const PlistDictionary foreign = dictionaryOf({{"x", 1}});
    const PlistValue lastCheck = "2024-01-02 03:04:05 +0000";
    write(file, {{"UpdateDB", foreign}, {"LastKoraCheckDate", lastCheck}, {"Other", true}});
    db->addApplicationWithIdentifier("com.a", "I", "P", "1.0", "/A.app", "B");
    db->syncDB();
    EXPECT_EQ(*onDisk().dictionary("UpdateDB"), foreign);
    EXPECT_EQ(*onDisk().find("LastKoraCheckDate"), lastCheck);

    PlistDictionary edited = onDisk();
    edited.set("KoraDB", foreign);
    writePropertyList(edited, file);
    db->updateInfoForUpdateWithIdentifier("com.a", updateOf({}));
    EXPECT_EQ(*onDisk().dictionary("KoraDB"), foreign);
    EXPECT_EQ(*onDisk().find("LastKoraCheckDate"), lastCheck);
    EXPECT_NE(onDisk().find("Other"), nullptr);
}

// The registry keeps the file's root in memory between writes: it must still
// notice every change another writer makes, and skip only writes that change
// nothing on disk.
TEST_F(ARegistry, SkipsWritesThatChangeNothingAndKeepsWhatAnotherWriterChanged) {
    auto db = open();
    db->addApplicationWithIdentifier("com.a", "I", "P", "1.0", "/A.app", "B");
    const auto finished = updateOf({{"downloadComplete", true}, {"installationComplete", true}});
    db->updateInfoForUpdateWithIdentifier("com.done", finished);  // adds an empty "UpdateDB"
    ASSERT_EQ(db->syncDB(), RegistryWrite::Written);
    const auto written = fileStampAt(file);
    EXPECT_EQ(db->syncDB(), RegistryWrite::Written);
    EXPECT_EQ(db->updateInfoForUpdateWithIdentifier("com.done", finished), RegistryWrite::Written);
    EXPECT_EQ(fileStampAt(file), written) << "the file was rewritten with the same bytes";

    // Another writer, first replacing the file, then rewriting it in place at
    // the same size: both changes survive the registry's next writes.
    PlistDictionary edited = onDisk();
    edited.set("LastKoraCheckDate", "2024-01-02 03:04:05 +0000");
    writePropertyList(edited, file);
    db->syncDB();
    EXPECT_EQ(onDisk().string("LastKoraCheckDate"), "2024-01-02 03:04:05 +0000");
    std::string text = fileText(file);
    text.replace(text.find("2024"), 4, "2025");
    std::ofstream(file, std::ios::binary | std::ios::in) << text;
    db->addApplicationWithIdentifier("com.b", "I", "P", "1.0", "/B.app", "B");
    db->syncDB();
    EXPECT_EQ(onDisk().string("LastKoraCheckDate"), "2025-01-02 03:04:05 +0000");
    EXPECT_NE(onDisk().dictionary("KoraDB")->find("com.b"), nullptr);

    // A file read from another writer is written again even when the section
    // is the same, so the bytes become the registry's own.
    writePropertyList(onDisk(), file);
    const auto foreign = fileStampAt(file);
    db->syncDB();
    EXPECT_NE(fileStampAt(file), foreign);
}

// The registry takes the sections it does not write from its own last file
// as bytes, by where it put them; the controller writes the check date through
// a RegistryFile of its own at any time in between.
TEST_F(ARegistry, KeepsEverySectionWhenItsWritesInterleaveWithAnotherWriters) {
    auto db = open();
    RegistryFile controller(file);
    PlistDictionary expected;
    const auto checkDate = [&](const std::string& text) {
        ASSERT_EQ(controller.replaceRootKey("LastKoraCheckDate", text), RegistryWrite::Written);
        expected.set("LastKoraCheckDate", text);
    };
    const auto application = [&](const std::string& identifier) {
        db->addApplicationWithIdentifier(identifier, "I", "P", "1.0", "/" + identifier, "B&<>");
        ASSERT_EQ(db->syncDB(), RegistryWrite::Written);
        PlistDictionary section = expected.dictionary("KoraDB") ? *expected.dictionary("KoraDB")
                                                                 : PlistDictionary{};
        section.set(identifier, db->registeredApplicationForIdentifier(identifier)->serialize());
        expected.set("KoraDB", section);
    };
    const auto update = [&](const std::string& version) {
        const auto stored = updateOf({{"versionTo", version}});
        ASSERT_EQ(db->updateInfoForUpdateWithIdentifier("com.a", stored), RegistryWrite::Written);
        expected.set("UpdateDB", dictionaryOf({{"com.a", stored->serialize()}}));
    };
    checkDate("2024-01-02 03:04:05 +0000");
    application("com.a");
    update("2.0");
    application("com.b");
    checkDate("2025-01-02 03:04:05 +0000 and longer");
    update("3.0-longer");
    application("com.c");
    checkDate("short");
    EXPECT_EQ(fileText(file), propertyListXml(expected));
}

TEST_F(ARegistry, ReadsTheLastCheckDateThroughTheRegistryFile) {
    write(file, {{"LastKoraCheckDate", "2024-01-02 03:04:05 +0000"}});
    RegistryFile registry(file);
    EXPECT_EQ(registry.rootValue("LastKoraCheckDate"), PlistValue("2024-01-02 03:04:05 +0000"));
    EXPECT_EQ(registry.rootValue("KoraDB"), std::nullopt);
    ASSERT_EQ(registry.replaceRootKey("KoraDB", PlistDictionary{}), RegistryWrite::Written);
    EXPECT_EQ(onDisk().string("LastKoraCheckDate"), "2024-01-02 03:04:05 +0000");
    fs::remove(file);
    EXPECT_EQ(registry.rootValue("LastKoraCheckDate"), std::nullopt);
}

TEST_F(ARegistry, KeepsFinishedUpdatesInMemoryButLeavesThemOutOfTheFile) {
    auto db = open();
    const auto finished = updateOf({{"downloadComplete", true}, {"installationComplete", true}});
    db->updateInfoForUpdateWithIdentifier("com.done", finished);
    db->updateInfoForUpdateWithIdentifier("com.half", updateOf({{"downloadComplete", true}}));
    db->removeApplicationWithIdentifier("com.half");

    EXPECT_EQ(db->getUpdateInfoForIdentifier("com.done"), finished);
    const PlistDictionary stored = *onDisk().dictionary("UpdateDB");
    EXPECT_EQ(stored.find("com.done"), nullptr);
    EXPECT_NE(stored.find("com.half"), nullptr);
}

// Nothing is loaded and the next write replaces the file, but only once the
// unreadable file is kept aside, replacing an older one kept there.
TEST_F(ARegistry, LoadsNothingFromACorruptFileAndKeepsItAsideBeforeReplacingIt) {
    const std::string corrupt = "<?xml version=\"1.0\"?><plist><dict><key>KoraDB</key>";
    const fs::path aside = file.string() + ".unreadable";
    std::ofstream(aside) << "older";
    std::ofstream(file) << corrupt;
    auto db = open();
    EXPECT_TRUE(db->registeredApplications().empty());
    EXPECT_EQ(fileText(file), corrupt) << "the file changed before any write";
    db->updateInfoForUpdateWithIdentifier("com.a", updateOf({}));
    EXPECT_EQ(onDisk().size(), 1u);
    EXPECT_NE(onDisk().dictionary("UpdateDB"), nullptr);
    EXPECT_EQ(fileText(aside), corrupt);

    // A missing or readable file has nothing to keep aside.
    fs::remove(aside);
    db->syncDB();
    fs::remove(file);
    db->syncDB();
    EXPECT_FALSE(fs::exists(aside));
}

// The cap is lowered so the test need not write 16 MiB. Memory keeps what was
// not written; a client's change is put back by the controller.
TEST_F(ARegistry, NeverWritesAFileLargerThanItsCapAndSaysSoOnce) {
    write(file, {{"LastKoraCheckDate", "kept"}});
    auto measure = open();
    measure->addApplicationWithIdentifier("com.a", "I", "P", "1.0", "/A.app", "B");
    ASSERT_EQ(measure->syncDB(), RegistryWrite::Written);
    measure.reset();
    const std::size_t size = fs::file_size(file);
    fs::remove(file);

    for (const std::size_t cap : {size, size - 1}) {
        write(file, {{"LastKoraCheckDate", "kept"}});
        const std::string before = fileText(file);
        lines.clear();
        auto db = open(cap);
        db->addApplicationWithIdentifier("com.a", "I", "P", "1.0", "/A.app", "B");
        const RegistryWrite outcome = db->syncDB();
        if (cap == size) {
            EXPECT_EQ(outcome, RegistryWrite::Written);
            EXPECT_EQ(fs::file_size(file), size);
            continue;
        }
        EXPECT_EQ(outcome, RegistryWrite::TooLarge);
        const auto update = updateOf({{"versionTo", std::string(size, '2')}});
        EXPECT_EQ(db->updateInfoForUpdateWithIdentifier("com.a", update), RegistryWrite::TooLarge);
        EXPECT_EQ(fileText(file), before);
        EXPECT_NE(db->registeredApplicationForIdentifier("com.a"), nullptr);
        EXPECT_NE(db->getUpdateInfoForIdentifier("com.a"), nullptr);
        ASSERT_EQ(lines.size(), 2u) << "one line per skipped write";
        EXPECT_NE(lines[0].find("not written"), std::string::npos) << lines[0];
        db->removeApplicationWithIdentifier("com.a");  // nothing left to write at the end
    }
}

TEST_F(ARegistry, SaysOnceWhyItCannotWriteAndWritesAgainWhenItCan) {
    fs::create_directory(file);
    auto db = open();
    EXPECT_EQ(db->syncDB(), RegistryWrite::Failed);
    EXPECT_EQ(db->syncDB(), RegistryWrite::Failed);
    ASSERT_EQ(lines.size(), 2u);  // the start's line, then one for the writes
    EXPECT_NE(lines[1].find("Cannot write the registry"), std::string::npos) << lines[1];
    EXPECT_NE(lines[1].find("Is a directory"), std::string::npos) << lines[1];
    fs::remove(file);
    EXPECT_EQ(db->syncDB(), RegistryWrite::Written);
}

// A write killed between creating its temporary file and renaming it leaves
// ".com.olvara.korad.plist.XXXXXX" behind; nothing else is touched.
TEST_F(ARegistry, RemovesTheTemporariesOfKilledWritesAtStart) {
    fs::create_directories(temp.path() / ".com.olvara.korad.plist.dir123");
    const std::vector<std::string> leftovers = {".com.olvara.korad.plist.a1B2c3",
                                                ".com.olvara.korad.plist.ZZZZZZ"};
    const std::vector<std::string> others = {".com.olvara.korad.plist.1234567",
                                             ".com.olvara.korad.plist.ab-123", ".other.plist.abcdef",
                                             "com.olvara.korad.plist.abcdef"};
    for (const auto& name : leftovers) std::ofstream(temp.path() / name) << "<?xml";
    for (const auto& name : others) std::ofstream(temp.path() / name) << "keep";
    fs::create_symlink(temp.path() / "target", temp.path() / ".com.olvara.korad.plist.link12");
    std::ofstream(temp.path() / "target") << "keep";
    open();
    for (const auto& name : leftovers) EXPECT_FALSE(fs::exists(temp.path() / name)) << name;
    for (const auto& name : others) EXPECT_TRUE(fs::exists(temp.path() / name)) << name;
    EXPECT_TRUE(fs::exists(temp.path() / ".com.olvara.korad.plist.dir123"));
    EXPECT_TRUE(fs::is_symlink(temp.path() / ".com.olvara.korad.plist.link12"));
}

TEST_F(ARegistry, TakesEachIdentityValueFromThePreferenceFileOnlyWhenFirstSeen) {
    write(preferences / "com.brand.plist", {{"MVNO", "Telia"}});
    write(preferences / "com.all.plist",
          {{"InstallationID", "I"}, {"ProductID", "P"}, {"MVNO", "M"}});
    write(temp.path() / "Other" / "com.leak.plist", {{"MVNO", "Leaked"}});
    const char* zero = KoraDB::kZeroIdentifier;
    // An identifier, then the installation, product and brand it gets.
    const std::array<const char*, 4> rows[] = {{"com.none", zero, zero, "Unknown"},
                                               {"com.brand", zero, zero, "Telia"},
                                               {"com.all", "I", "P", "M"},
                                               {"../Other/com.leak", zero, zero, "Unknown"}};
    auto db = open();
    for (const auto& [identifier, installationID, productID, brand] : rows) {
        db->updateApplication(identifier, "/A.app", "1.0");
        write(preferences / (std::string(identifier) + ".plist"), {{"MVNO", "Changed"}});
        db->updateApplication(identifier, "/B.app", "2.0");
        const auto application = db->registeredApplicationForIdentifier(identifier);
        EXPECT_EQ(std::tuple(application->installationID(), application->productID(),
                             application->brand(), application->bundlePath(),
                             application->lastKnownVersion()),
                  std::tuple(installationID, productID, brand, "/B.app", "2.0"));
    }
}

TEST_F(ARegistry, FollowsMovedBundlesAndDropsVanishedOnesInMemoryOnly) {
    const fs::path kept = makeBundle("Kept.app", "com.kept", "1.0");
    const fs::path moved = makeBundle("Folder/Moved.app", "com.moved", "3.1");
    write(preferences / "com.moved.plist", {{"InstallationID", "I2"}});
    auto db = open();
    db->addApplicationWithIdentifier("com.kept", "I", "P", "0.9", kept.string(), "B");
    db->addApplicationWithIdentifier("com.moved", "I", "P", "3.0", "/Old/Moved.app", "B");
    db->addApplicationWithIdentifier("com.gone", "I", "P", "1.0", "/Old/Gone.app", "B");
    db->syncDB();

    EXPECT_TRUE(db->updateInstalledApplications());
    EXPECT_EQ(db->registeredApplicationForIdentifier("com.kept")->lastKnownVersion(), "0.9");
    const auto application = db->registeredApplicationForIdentifier("com.moved");
    EXPECT_EQ(std::tuple(application->bundlePath(), application->lastKnownVersion(),
                         application->installationID(), application->brand()),
              std::tuple(moved.string(), "3.1", "I2", "Unknown"));
    EXPECT_EQ(db->registeredApplicationForIdentifier("com.gone"), nullptr);
    EXPECT_NE(onDisk().dictionary("KoraDB")->find("com.gone"), nullptr);
}

TEST_F(ARegistry, FindsTheFirstMatchingBundleInPathNameOrder) {
    makeBundle("B.app", "com.x");
    const fs::path first = makeBundle("A Folder/X.app", "com.x");
    makeBundle("A Folder/Other.app", "com.y");
    makeBundle("C.app/Contents/Nested.app", "com.z");
    EXPECT_EQ(workspace.absolutePathForAppBundleWithIdentifier("com.x"), first);
    EXPECT_EQ(workspace.absolutePathForAppBundleWithIdentifier("com.z"), std::nullopt);
    EXPECT_EQ(LiveWorkspace(temp.path() / "none").absolutePathForAppBundleWithIdentifier("com.x"),
              std::nullopt);
}

// End tags hidden in comments or processing instructions once let such files
// past the nesting count, and the daemon died at start or at the hourly scan.
TEST_F(ARegistry, SkipsFilesNestedPastTheCapWhereverTheyAreRead) {
    const std::string hostile = nestedPlist("<array><!--</array>-->", "</array>", 100000);
    std::ofstream(file) << hostile;
    EXPECT_TRUE(open()->registeredApplications().empty());

    fs::create_directories(applications / "A.app/Contents");
    std::ofstream(applications / "A.app/Contents/Info.plist")
        << nestedPlist("<array><?x </array>?>", "</array>", 100000);
    const fs::path good = makeBundle("B.app", "com.x");
    EXPECT_EQ(workspace.absolutePathForAppBundleWithIdentifier("com.x"), good);
}

}  // namespace
}  // namespace kora
