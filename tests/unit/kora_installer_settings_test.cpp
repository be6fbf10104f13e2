#include <gtest/gtest.h>
#include <unistd.h>

#include "support/installer_fixture.h"
#include "update/kora_installer.h"

namespace kora::test {
namespace {

// The owner of the test homes: "nobody", an ordinary user.
constexpr uid_t kUser = 65534;
constexpr gid_t kGroup = 65534;

using Values = std::map<std::string, std::optional<PlistValue>>;  // home -> "Mode" value

struct Ownership {
    uid_t user;
    gid_t group;
    fs::perms mode;
    bool operator==(const Ownership&) const = default;
};

Ownership ownershipOf(const fs::path& path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return {status.st_uid, status.st_gid, fs::perms(status.st_mode & 07777)};
}

void chownAll(const fs::path& top) {
    for (const auto& entry : fs::recursive_directory_iterator(top)) {
        ASSERT_EQ(::lchown(entry.path().c_str(), kUser, kGroup), 0);
    }
    ASSERT_EQ(::lchown(top.c_str(), kUser, kGroup), 0);
}

class ChangingSettings : public InstallerTest {
  protected:
    void SetUp() override {
        if (::geteuid() != 0) GTEST_SKIP() << "homes of another user need root";
        // The users must be able to reach their homes inside the test folder.
        fs::permissions(temp.path(), fs::perms(0755));
    }

    fs::path fileIn(const std::string& home) const {
        return paths.users / home / "Library/Preferences/com.ex.App.plist";
    }

    // Homes owned by the user, each with a preference file holding "Other" and any "Mode".
    void makeHomes(const Values& values) {
        fs::remove_all(paths.users);
        for (const auto& [home, value] : values) {
            PlistDictionary preferences = dictionaryOf({{"Other", "kept"}});
            if (value) preferences.set("Mode", *value);
            fs::create_directories(fileIn(home).parent_path());
            ASSERT_TRUE(writePropertyList(preferences, fileIn(home)));
            fs::permissions(fileIn(home), fs::perms(0640));
            chownAll(paths.users / home);
        }
    }

    // Homes whose preference file, or folder, is a link to what only root may change.
    void makeHostileHomes() {
        const fs::path rootFile = temp.path() / "root-owned.plist";
        ASSERT_TRUE(writePropertyList(dictionaryOf({{"Mode", "1"}, {"Other", "kept"}}), rootFile));
        fs::create_directories(fileIn("link").parent_path());
        fs::create_symlink(rootFile, fileIn("link"));
        chownAll(paths.users / "link");

        const fs::path rootOnly = temp.path() / "root-only";
        fs::create_directories(rootOnly);
        ASSERT_TRUE(writePropertyList(dictionaryOf({{"Mode", "1"}, {"Other", "kept"}}), rootOnly / "com.ex.App.plist"));
        fs::permissions(rootOnly, fs::perms(0700));
        fs::create_directories(paths.users / "folderlink/Library");
        fs::create_symlink(rootOnly, paths.users / "folderlink/Library/Preferences");
        chownAll(paths.users / "folderlink");
    }

    std::optional<PlistValue> modeIn(const fs::path& file) const {
        const auto preferences = readPropertyListDictionary(file);
        if (!preferences) return PlistValue("unreadable");
        EXPECT_EQ(preferences->string("Other"), "kept") << file;
        const PlistValue* mode = preferences->find("Mode");
        return mode ? std::optional<PlistValue>(*mode) : std::nullopt;
    }
};

TEST_F(ChangingSettings, ChangesEveryUsersFileWhoseValueIsADefaultWithThatUsersRights) {
    const std::vector<std::string> zeroOrOne{"0", "1"};
    const struct {
        const char* name;
        std::optional<std::vector<std::string>> defaults;
        Values before;
        bool result;
        Values after;
    } rows[] = {
        {"defaults",
         zeroOrOne,
         {{"alice", "1"}, {"bob", "2"}, {"carol", std::nullopt}, {"Shared", "1"}, {"dave", "0"}},
         true,
         {{"alice", "new"}, {"bob", "2"}, {"carol", std::nullopt}, {"Shared", "1"}, {"dave", "new"}}},
        {"forced",
         std::nullopt,
         {{"alice", "1"}, {"bob", "2"}, {"carol", std::nullopt}, {"SHARED", "1"}},
         true,
         {{"alice", "new"}, {"bob", "new"}, {"carol", "new"}, {"SHARED", "1"}}},
        {"no default matches",
         zeroOrOne,
         {{"alice", "2"}, {"bob", true}},  // not compared when no default is given
         false,
         {{"alice", "2"}, {"bob", true}}},
        // A value that is not text stops the run after alice, before carol.
        {"a value that is not text",
         zeroOrOne,
         {{"alice", "1"}, {"bob", 1}, {"carol", "1"}},
         false,
         {{"alice", "new"}, {"bob", 1}, {"carol", "1"}}},
        {"only the first matching default counts",
         std::vector<std::string>{"1", "1"},
         {{"alice", "1"}},
         true,
         {{"alice", "new"}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        makeHomes(row.before);
        makeHostileHomes();
        lines.clear();
        EXPECT_EQ(installer().UpdateSettingForApplication("com.ex.App", "Mode", "new", row.defaults),
                  row.result);
        for (const auto& [home, value] : row.after) EXPECT_EQ(modeIn(fileIn(home)), value) << home;
        EXPECT_EQ(ownershipOf(fileIn("alice")), (Ownership{kUser, kGroup, fs::perms(0640)}));
        EXPECT_EQ(modeIn(temp.path() / "root-owned.plist"), PlistValue("1"));
        EXPECT_EQ(modeIn(temp.path() / "root-only/com.ex.App.plist"), PlistValue("1"));
        EXPECT_TRUE(fs::is_symlink(fileIn("link")));
        EXPECT_TRUE(lines.empty());
    }
}

TEST_F(ChangingSettings, AnswersFalseWhenNoHomeHasTheFile) {
    fs::create_directories(paths.users / "alice");
    EXPECT_FALSE(installer().UpdateSettingForApplication("com.ex.App", "Mode", "new", std::nullopt));
    fs::remove_all(paths.users);
    EXPECT_FALSE(installer().UpdateSettingForApplication("com.ex.App", "Mode", "new", std::nullopt));
}

}  // namespace
}  // namespace kora::test
