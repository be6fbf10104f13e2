#include "update/kora_installer.h"

#include <gtest/gtest.h>

#include "support/installer_fixture.h"
#include "update/kora_update.h"

namespace kora::test {
namespace {

using Flags = Reachability::Flags;

class AnInstaller : public InstallerTest {
  protected:
    KoraUpdate updateFor(std::optional<std::string> archive) {
        KoraUpdate update;
        update.setLocalFilePath(std::move(archive));
        return update;
    }
};

TEST_F(AnInstaller, ExpandsPathMacros) {
    registerApplications({{"com.ex.Reg", dictionaryOf({{"bundlePath", "/Reg.app"}})},
                          {"com.ex.Both", dictionaryOf({{"bundlePath", "/FromRegistry.app"}})}});
    workspace.bundles = {{"com.ex.Ws", "/Ws.app"}, {"com.ex.Both", "/FromWorkspace.app"}};
    const std::string apps = paths.applications, tmp = paths.tmp;
    const struct {
        std::string text, expected;
    } rows[] = {
        {"@update/update.plist", "/tmp/Upd/update.plist"},
        {"@applications/Tool.app", apps + "/Tool.app"},
        {"@tmpdir", tmp + "dir"},  // "@tmp" is plain text, matched before identifiers
        {"@com.ex.Reg/Contents", "/Reg.app/Contents"},
        {"@com.ex.Both/Contents", "/FromRegistry.app/Contents"},  // the registry comes first
        {"@com.ex.Ws/Contents", "/Ws.app/Contents"},
        {"@com.ex.None/Contents", "@com.ex.None/Contents"},
        {"@com.ex.Reg/a:@com.ex.Reg", "/Reg.app/a:/Reg.app"},     // every occurrence of the first
        {"@com.ex.Reg/a:@com.ex.Ws/b", "/Reg.app/a:@com.ex.Ws/b"},  // only the first macro
        {"plain/path", "plain/path"},
    };
    const KoraUpdate update = updateFor("/tmp/Upd.zip");
    for (const auto& row : rows) {
        EXPECT_EQ(installer().TranslateKoraString(row.text, update), row.expected) << row.text;
    }
    EXPECT_TRUE(lines.empty());
}

TEST_F(AnInstaller, LogsAndReturnsThePartlyExpandedTextWhenAMacroCannotBeFilled) {
    registerApplications({{"com.ex.NoPath", dictionaryOf({{"bundleVersion", "1"}})},
                          {"com.ex.Number", dictionaryOf({{"bundlePath", 7}})}});
    workspace.bundles = {{"com.ex.NoPath", "/Ws.app"}};
    const struct {
        std::optional<std::string> archive;
        std::string text, expected, error;
    } rows[] = {
        // An entry without a path does not fall back to the workspace.
        {"/tmp/U.zip", "@tmp/@com.ex.NoPath/x", paths.tmp + "/@com.ex.NoPath/x",
         "the registry holds no bundle path for com.ex.NoPath"},
        {"/tmp/U.zip", "@com.ex.Number", "@com.ex.Number",
         "the registry holds no bundle path for com.ex.Number"},
        // Without an archive "@update" cannot be filled (a text without it can).
        {std::nullopt, "@update/update.plist", "@update/update.plist",
         "the update has no archive for @update"},
    };
    for (const auto& row : rows) {
        lines.clear();
        EXPECT_EQ(installer().TranslateKoraString(row.text, updateFor(row.archive)), row.expected);
        EXPECT_EQ(lines, (std::vector<std::string>{
                             "Exception while translating kora string: " + row.error + "\n",
                             "The string is: " + row.expected + "\n"}));
    }
    EXPECT_EQ(installer().TranslateKoraString("@tmp", updateFor(std::nullopt)), paths.tmp);
}

TEST_F(AnInstaller, FindsOnlyRegisteredStringPaths) {
    workspace.bundles = {{"com.ex.Ws", "/Ws.app"}};
    registerApplications({{"com.ex.Reg", dictionaryOf({{"bundlePath", "/Reg.app"}})},
                          {"com.ex.Number", dictionaryOf({{"bundlePath", 7}})},
                          {"com.ex.Text", "not an entry"}});
    EXPECT_EQ(installer().FindPathForIdentifier("com.ex.Reg"), "/Reg.app");
    for (const char* identifier : {"com.ex.Ws", "com.ex.Number", "com.ex.Text"}) {
        EXPECT_EQ(installer().FindPathForIdentifier(identifier), std::nullopt) << identifier;
    }
}

std::string text(const std::vector<std::uint8_t>& bytes) {
    return std::string(bytes.begin(), bytes.end());
}

TEST_F(AnInstaller, RunsToolsThroughItsTableAndReportsHowTheyEnded) {
    tools.set("/bin/launchctl", recordingStub("launchctl"));
    const struct {
        std::string tool;
        std::vector<std::string> arguments;
        std::string output;
        int resultCode;
    } rows[] = {
        {"/bin/sh", {"-c", "printf 'out\\0put'; echo err >&2"}, std::string("out\0put", 7), 0},
        {"/bin/sh", {"-c", "exit 3"}, "", 3},
        {"/bin/sh", {"-c", "kill -TERM $$"}, "", 128 + 15},
        // Standard input is closed at once: a question reads end-of-file.
        {"/bin/sh", {"-c", "read answer; echo \"got [$answer] $?\""}, "got [] 1\n", 0},
        {"/nonexistent/tool", {}, "", -1},
        {"/bin/launchctl", {"load", "/a b.plist"}, "", 0},
    };
    for (const auto& row : rows) {
        int resultCode = 99;
        EXPECT_EQ(text(installer().PerformTask(row.tool, row.arguments, resultCode)), row.output);
        EXPECT_EQ(resultCode, row.resultCode) << row.tool;
    }
    EXPECT_EQ(stubCalls("launchctl"), "load /a b.plist\n");
}

TEST_F(AnInstaller, HashesFilesAsUpperCaseHexAndUnreadableOnesAsEmpty) {
    const std::string emptySha1 = "DA39A3EE5E6B4B0D3255BFEF95601890AFD80709";
    writeFileText(temp.path() / "abc", "abc");
    // Larger than the read buffer, with a tail, so the streaming is exercised;
    // the expected digest is the one sha1sum computes.
    writeFileText(temp.path() / "large", std::string((3 << 20) + 17, 'k'));
    int resultCode = -1;
    const std::string sha1sum =
        text(installer().PerformTask("/usr/bin/sha1sum", {(temp.path() / "large").string()}, resultCode));
    ASSERT_EQ(resultCode, 0);
    std::string largeDigest = sha1sum.substr(0, 40);
    for (char& c : largeDigest) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    writeFileText(temp.path() / "unreadable/x", "");

    const struct {
        fs::path file;
        std::string digest;
    } rows[] = {
        {temp.path() / "abc", "A9993E364706816ABA3E25717850C26C9CD0D89D"},
        {temp.path() / "large", largeDigest},
        {temp.path() / "missing", emptySha1},
        {temp.path() / "unreadable", emptySha1},  // a folder: reading fails at once
    };
    for (const auto& row : rows) EXPECT_EQ(KoraInstaller::getSHA1HashForFile(row.file), row.digest);

    const std::string abc = "abc";
    EXPECT_EQ(KoraInstaller::md5({reinterpret_cast<const std::uint8_t*>(abc.data()), abc.size()}),
              "900150983CD24FB0D6963F7D28E17F72");
    EXPECT_EQ(KoraInstaller::md5({}), "D41D8CD98F00B204E9800998ECF8427E");
}

TEST_F(AnInstaller, HasAConnectionOnlyWhenTheHostIsReachableWithoutSettingOneUp) {
    const struct {
        std::optional<Flags> flags;
        bool connected;
    } rows[] = {
        {Flags{.reachable = true, .connectionRequired = false}, true},
        {Flags{.reachable = true, .connectionRequired = true}, false},  // dial-on-demand
        {Flags{.reachable = false, .connectionRequired = false}, false},
        {std::nullopt, false},
    };
    for (const auto& row : rows) {
        reachability.flags = row.flags;
        EXPECT_EQ(installer().HasInternetConnection(), row.connected);
    }
    EXPECT_EQ(reachability.hosts, std::vector<std::string>(4, "updates.example"));
}

TEST(TheReachabilityHost, IsTheHostOfTheServiceAddress) {
    const std::pair<std::string, std::string> rows[] = {
        {"http://127.0.0.1:8080/telso/cm/webservices/kora2.asmx", "127.0.0.1"},
        {"https://updates.example/telso/cm/webservices/kora2.asmx", "updates.example"},
        {"not an address", ""},
    };
    for (const auto& [address, host] : rows) EXPECT_EQ(KoraReachabilityHost(address), host) << address;
}

}  // namespace
}  // namespace kora::test
