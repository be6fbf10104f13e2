#include "registry/kora_db.h"

#include <gtest/gtest.h>

#include <fstream>

#include "support/temp_dir.h"

namespace kora {
namespace {

namespace fs = std::filesystem;
using Entries = std::vector<std::pair<std::string, PlistValue>>;

PlistDictionary dictionaryOf(Entries entries) {
    PlistDictionary dictionary;
    for (const auto& [key, value] : entries) dictionary.set(key, value);
    return dictionary;
}

class ARegistry : public testing::Test {
  protected:
    ARegistry() { fs::create_directories(preferences()); }

    fs::path file() const { return temp.path() / "com.olvara.korad.plist"; }
    fs::path preferences() const { return temp.path() / "Preferences"; }
    fs::path applications() const { return temp.path() / "Applications"; }
    std::unique_ptr<KoraDB> open() const {
        return std::make_unique<KoraDB>(file(), workspace, preferences());
    }
    PlistDictionary onDisk() const { return readPropertyListDictionary(file()).value(); }
    void writePreferences(const std::string& identifier, Entries entries) const {
        writePropertyList(dictionaryOf(entries), preferences() / (identifier + ".plist"));
    }
    fs::path makeBundle(const fs::path& relative, const std::string& identifier,
                        const std::string& version) const {
        const fs::path bundle = applications() / relative;
        fs::create_directories(bundle / "Contents");
        writePropertyList(dictionaryOf({{"CFBundleIdentifier", identifier},
                                        {"CFBundleShortVersionString", version}}),
                          bundle / "Contents" / "Info.plist");
        return bundle;
    }

    TempDir temp;
    LiveWorkspace workspace{applications()};
};

TEST_F(ARegistry, ReadsBackWhatAnotherRegistryWrote) {
    auto update = std::make_shared<KoraUpdate>();
    update->setIdentifier("com.a");
    update->setVersionTo("2.0");
    {
        auto db = open();
        db->addApplicationWithIdentifier("com.a", "I", "P", "1.0", "/A.app", std::nullopt);
        db->updateInfoForUpdateWithIdentifier("com.a", update);
    }
    const PlistDictionary entry = *onDisk().dictionary("KoraDB")->dictionary("com.a");
    EXPECT_EQ(entry.find("identifier"), nullptr);
    EXPECT_EQ(entry.find("brand"), nullptr);
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
    writePropertyList(dictionaryOf({{"UpdateDB", foreign},
                                    {"LastKoraCheckDate", "2024-01-02 03:04:05 +0000"},
                                    {"Other", true}}),
                      file());
    db->addApplicationWithIdentifier("com.a", "I", "P", "1.0", "/A.app", "B");
    db->syncDB();
    EXPECT_EQ(*onDisk().dictionary("UpdateDB"), foreign);
    EXPECT_EQ(onDisk().string("LastKoraCheckDate"), "2024-01-02 03:04:05 +0000");

    PlistDictionary edited = onDisk();
    edited.set("KoraDB", foreign);
    writePropertyList(edited, file());
    db->updateInfoForUpdateWithIdentifier("com.a", std::make_shared<KoraUpdate>());
    EXPECT_EQ(*onDisk().dictionary("KoraDB"), foreign);
    EXPECT_EQ(onDisk().string("LastKoraCheckDate"), "2024-01-02 03:04:05 +0000");
    EXPECT_NE(onDisk().find("Other"), nullptr);
}

TEST_F(ARegistry, KeepsFinishedUpdatesInMemoryButLeavesThemOutOfTheFile) {
    auto db = open();
    auto finished = std::make_shared<KoraUpdate>();
    finished->setDownloadComplete(true);
    finished->setInstallationComplete(true);
    auto downloaded = std::make_shared<KoraUpdate>();
    downloaded->setDownloadComplete(true);
    db->updateInfoForUpdateWithIdentifier("com.done", finished);
    db->updateInfoForUpdateWithIdentifier("com.half", downloaded);
    db->removeApplicationWithIdentifier("com.half");

    EXPECT_EQ(db->getUpdateInfoForIdentifier("com.done"), finished);
    const PlistDictionary stored = *onDisk().dictionary("UpdateDB");
    EXPECT_EQ(stored.find("com.done"), nullptr);
    EXPECT_NE(stored.find("com.half"), nullptr);
}

TEST_F(ARegistry, LoadsNothingFromACorruptFileAndThenReplacesIt) {
    std::ofstream(file()) << "<?xml version=\"1.0\"?><plist><dict><key>KoraDB</key>";
    auto db = open();
    EXPECT_TRUE(db->registeredApplications().empty());
    db->updateInfoForUpdateWithIdentifier("com.a", std::make_shared<KoraUpdate>());
    EXPECT_EQ(onDisk().size(), 1u);
    EXPECT_NE(onDisk().dictionary("UpdateDB"), nullptr);
}

struct PreferenceCase {
    const char* name;
    std::optional<Entries> preferences;  // none: no preference file
    const char* installationID;
    const char* productID;
    const char* brand;
};

class ANewApplication : public ARegistry, public testing::WithParamInterface<PreferenceCase> {};

TEST_P(ANewApplication, TakesEachIdentityValueFromItsPreferenceFileOnlyWhenFirstSeen) {
    const PreferenceCase& row = GetParam();
    if (row.preferences) writePreferences("com.a", *row.preferences);
    auto db = open();
    db->updateApplication("com.a", "/A.app", "1.0");
    const auto application = db->registeredApplicationForIdentifier("com.a");
    EXPECT_EQ(application->installationID(), row.installationID);
    EXPECT_EQ(application->productID(), row.productID);
    EXPECT_EQ(application->brand(), row.brand);

    writePreferences("com.a", {{"MVNO", "Changed"}});
    db->updateApplication("com.a", "/B.app", "2.0");
    EXPECT_EQ(application->bundlePath(), "/B.app");
    EXPECT_EQ(application->lastKnownVersion(), "2.0");
    EXPECT_EQ(application->brand(), row.brand);
}

constexpr const char* kZero = KoraDB::kZeroIdentifier;
INSTANTIATE_TEST_SUITE_P(
    Rows, ANewApplication,
    testing::Values(PreferenceCase{"NoFile", std::nullopt, kZero, kZero, "Unknown"},
                    PreferenceCase{"OnlyBrand", Entries{{"MVNO", "Telia"}}, kZero, kZero, "Telia"},
                    PreferenceCase{
                        "AllValues",
                        Entries{{"InstallationID", "I"}, {"ProductID", "P"}, {"MVNO", "M"}}, "I",
                        "P", "M"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(ARegistry, FollowsMovedBundlesAndDropsVanishedOnesInMemoryOnly) {
    const fs::path kept = makeBundle("Kept.app", "com.kept", "1.0");
    const fs::path moved = makeBundle("Folder/Moved.app", "com.moved", "3.1");
    writePreferences("com.moved", {{"InstallationID", "I2"}});
    auto db = open();
    db->addApplicationWithIdentifier("com.kept", "I", "P", "0.9", kept.string(), "B");
    db->addApplicationWithIdentifier("com.moved", "I", "P", "3.0", "/Old/Moved.app", "B");
    db->addApplicationWithIdentifier("com.gone", "I", "P", "1.0", "/Old/Gone.app", "B");
    db->syncDB();

    EXPECT_TRUE(db->updateInstalledApplications());
    EXPECT_EQ(db->registeredApplicationForIdentifier("com.kept")->lastKnownVersion(), "0.9");
    const auto application = db->registeredApplicationForIdentifier("com.moved");
    EXPECT_EQ(application->bundlePath(), moved.string());
    EXPECT_EQ(application->lastKnownVersion(), "3.1");
    EXPECT_EQ(application->installationID(), "I2");
    EXPECT_EQ(application->brand(), "Unknown");
    EXPECT_EQ(db->registeredApplicationForIdentifier("com.gone"), nullptr);
    EXPECT_NE(onDisk().dictionary("KoraDB")->find("com.gone"), nullptr);
}

TEST_F(ARegistry, FindsTheFirstMatchingBundleInPathNameOrder) {
    makeBundle("B.app", "com.x", "1");
    const fs::path first = makeBundle("A Folder/X.app", "com.x", "1");
    makeBundle("A Folder/Other.app", "com.y", "1");
    makeBundle("C.app/Contents/Nested.app", "com.z", "1");
    EXPECT_EQ(workspace.absolutePathForAppBundleWithIdentifier("com.x"), first);
    EXPECT_EQ(workspace.absolutePathForAppBundleWithIdentifier("com.z"), std::nullopt);
    EXPECT_EQ(LiveWorkspace(temp.path() / "none").absolutePathForAppBundleWithIdentifier("com.x"),
              std::nullopt);
}

}  // namespace
}  // namespace kora
