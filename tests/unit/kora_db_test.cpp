#include "registry/kora_db.h"

#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <tuple>

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

class ARegistry : public testing::Test {
  protected:
    auto open() const { return std::make_unique<KoraDB>(file, workspace, preferences); }
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

TEST_F(ARegistry, LoadsNothingFromACorruptFileAndThenReplacesIt) {
    std::ofstream(file) << "<?xml version=\"1.0\"?><plist><dict><key>KoraDB</key>";
    auto db = open();
    EXPECT_TRUE(db->registeredApplications().empty());
    db->updateInfoForUpdateWithIdentifier("com.a", updateOf({}));
    EXPECT_EQ(onDisk().size(), 1u);
    EXPECT_NE(onDisk().dictionary("UpdateDB"), nullptr);
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
