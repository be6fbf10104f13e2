#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "preflight/archive_preflight.h"
#include "support/installation_machine.h"
#include "preflight/install_commands.h"
#include "update/kora_update.h"

namespace kora::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

PlistDictionary scriptOf(PlistValue::Array actions) {
    return dictionaryOf({{"Actions", std::move(actions)}});
}

std::vector<std::string> textsOf(const std::vector<LogLine>& log, std::optional<int> priority = {}) {
    std::vector<std::string> texts;
    for (const LogLine& line : log) {
        if (!priority || line.priority == *priority) texts.push_back(line.text);
    }
    return texts;
}

// True when `expected` appears in `actual` in this order, other lines between.
bool containsInOrder(const std::vector<std::string>& actual, const std::vector<std::string>& expected) {
    auto next = actual.begin();
    for (const std::string& line : expected) {
        next = std::find(next, actual.end(), line);
        if (next == actual.end()) return false;
        ++next;
    }
    return true;
}

// Each row's actions are followed by a delete of "@tmp/sentinel": whether the script went on shows on disk.

struct ScriptRow {
    std::string name;
    PlistValue::Array actions;
    bool succeeds;
    // Logged in this order; with `exactLog`, nothing else is logged.
    std::vector<std::string> lines;
    bool exactLog = true;
    std::string stubBody = "exit 0";
    std::string missingTool = "";
};

void PrintTo(const ScriptRow& row, std::ostream* out) { *out << row.name; }

class AnInstallScript : public testing::TestWithParam<ScriptRow> {};

TEST_P(AnInstallScript, RunsUntilAnActionFailsAndLogsEachStep) {
    const ScriptRow& row = GetParam();
    InstallationMachine machine;
    machine.setStubs(row.stubBody);
    const fs::path sentinel = machine.tmp / "sentinel";
    std::ofstream(sentinel) << "x";
    PlistValue::Array actions = row.actions;
    actions.push_back(dictionaryOf({{"Command", "delete"}, {"File", "@tmp/sentinel"}}));
    auto update = machine.updateFor(scriptOf(actions));
    KoraInstaller installer = machine.installer(row.missingTool);
    const auto problems = preflightUpdateArchive(*update->localFilePath());

    update->startInstallation(installer, &machine.helper);

    ASSERT_EQ(machine.delegate.calls.size(), 1u);
    EXPECT_EQ(machine.delegate.calls[0].succeeded, row.succeeds);
    // What stops on the script itself, rather than on a tool, the preflight reports.
    const bool stopsOnTheScript = !row.succeeds && row.exactLog && row.missingTool.empty();
    EXPECT_EQ(std::any_of(problems.begin(), problems.end(),
                          [](const auto& problem) { return problem.severity == PreflightProblem::Severity::Error; }),
              stopsOnTheScript);
    EXPECT_EQ(fs::exists(sentinel), !row.succeeds) << "the action after a failure never runs";
    std::vector<std::string> expected;
    for (const std::string& line : row.lines) expected.push_back(machine.expand(line));
    if (row.succeeds) expected.push_back("Performing delete\n");
    if (row.exactLog) {
        EXPECT_EQ(textsOf(machine.log), expected);
    } else {
        EXPECT_TRUE(containsInOrder(textsOf(machine.log), expected))
            << testing::PrintToString(textsOf(machine.log));
    }
    // Only two lines of the script stage are errors.
    for (const std::string& line : textsOf(machine.log, kPriorityError)) {
        EXPECT_TRUE(line == "Error: Unknown command\n" || line.starts_with("Error: Action"))
            << line;
    }
    EXPECT_TRUE(machine.helper.calls.empty());
}

const std::string kLong = "/" + std::string(1100, 'p');

// clang-format off
const ScriptRow kScriptRows[] = {
    // Every key check, with "Performing ...\n" logged before it.
    {"DeleteWithoutPath", {act({{"Command", "delete"}})}, false, {"Performing delete\n", "Syntax error: File or Folder missing\n"}},
    {"UpdatefilesWithoutFrom", {act({{"Command", "updatefiles"}, {"To", "@tmp/t"}})}, false, {"Performing updatefiles\n", "Syntax error: From missing\n"}},
    {"UpdatefilesWithoutTo", {act({{"Command", "updatefiles"}, {"From", "@tmp/f"}})}, false, {"Performing updatefiles\n", "Syntax error: To missing\n"}},
    {"UpdatefilesWithANumberAsFrom", {act({{"Command", "updatefiles"}, {"From", 7}, {"To", "@tmp/t"}})}, false, {"Performing updatefiles\n", "Syntax error: From missing\n"}},
    {"InstallpkgWithoutPackage", {act({{"Command", "installpkg"}})}, false, {"Performing installpkg\n", "Syntax error: Package missing\n"}},
    {"InstallappWithoutFrom", {act({{"Command", "installapp"}, {"InstallTo", "@tmp/A.app"}})}, false, {"Performing installapp\n", "Syntax error: InstallFrom missing\n"}},
    {"InstallappWithoutTo", {act({{"Command", "installapp"}, {"InstallFrom", "@tmp/A.app"}})}, false, {"Performing installapp\n", "Syntax error: InstallTo missing\n"}},
    {"InstallappWithATextAsFlag", {act({{"Command", "installapp"}, {"InstallFrom", "@tmp/A.zip"}, {"InstallTo", "@tmp/A.app"}, {"IsCompressed", "yes"}})}, false, {"Performing installapp\n", "Syntax error: IsCompressed is not a boolean\n"}},
    {"InstalldaemonWithoutIdentifier", {act({{"Command", "installdaemon"}, {"BinaryFile", "@tmp/d"}})}, false, {"Performing installdaemon\n", "Syntax error: Identifier missing\n"}},
    {"InstalldaemonWithoutBinary", {act({{"Command", "installdaemon"}, {"Identifier", "com.x"}})}, false, {"Performing installdaemon\n", "Syntax error: BinaryFile missing\n"}},
    {"UpdatesettingWithoutNewValue", {act({{"Command", "updatesetting"}, {"Application", "com.x"}, {"Key", "K"}, {"Force", true}})}, false, {"Performing updatesetting\n", "Syntax error: Missing values for updatesetting\n"}},
    {"UpdatesettingWithoutDefaults", {act({{"Command", "updatesetting"}, {"Application", "com.x"}, {"Key", "K"}, {"NewValue", 1}})}, false, {"Performing updatesetting\n", "Syntax error: Default values missing\n"}},
    {"UpdatesettingWithATextAsForce", {act({{"Command", "updatesetting"}, {"Application", "com.x"}, {"Key", "K"}, {"NewValue", 1}, {"Force", "YES"}})}, false, {"Performing updatesetting\n", "Syntax error: Force is not a boolean\n"}},
    {"UpdatesettingForcedNeedsNoDefaults", {act({{"Command", "updatesetting"}, {"Application", "com.x"}, {"Key", "K"}, {"NewValue", 1}, {"Force", true}})}, true, {"Performing updatesetting\n"}},
    // Commands and the shape of the script.
    {"UnknownCommand", {act({{"Command", "install pkg"}})}, false, {"Error: Unknown command\n"}},
    {"CommandThatIsNotText", {act({{"Command", 7}})}, false, {"Error: Unknown command\n"}},
    {"ActionThatIsNotADictionary", {PlistValue("delete")}, false, {"Error: Action 1 is not a dictionary\n"}},
    {"ActionWithoutCommandIsPassedOver", {act({{"File", "@tmp/sentinel"}})}, true, {}},
    {"UpdateselfBeforeAFailureHandsNothingOver", {act({{"Command", "updateself"}, {"Binary", "@update/korad"}}), act({{"Command", "delete"}})}, false, {"Performing delete\n", "Syntax error: File or Folder missing\n"}},
    // Tools: only one that cannot start fails the action.
    {"PackageToolEndingWithAStatus", {act({{"Command", "installpkg"}, {"Package", "@update/a.deb"}})}, true, {"Performing installpkg\n"}, true, "exit 3"},
    {"PackageToolKilledByASignal", {act({{"Command", "installpkg"}, {"Package", "@update/a.deb"}})}, true, {"Performing installpkg\n"}, true, "kill -KILL $$"},
    {"PackageToolThatCannotStart", {act({{"Command", "installpkg"}, {"Package", "@update/a.deb"}})}, false, {"Performing installpkg\n", "Error installing package: @update/a.deb\n"}, true, "exit 0", ToolTable::kInstaller},
    {"CopyEndingWithAStatus", {act({{"Command", "updatefiles"}, {"From", "@update/missing"}, {"To", "@tmp/t"}})}, true, {"Performing updatefiles\n"}},
    {"CopyThatCannotStart", {act({{"Command", "updatefiles"}, {"From", "@update/f"}, {"To", "@tmp/t"}})}, false, {"Performing updatefiles\n", "Error copying files from: @update/f to: @tmp/t\n"}, true, "exit 0", ToolTable::kCp},
    {"ApplicationThatCannotBeCopied", {act({{"Command", "installapp"}, {"InstallFrom", "@update/No.app"}, {"InstallTo", "@applications/Tool.app"}})}, false, {"Performing installapp\n", "Error installing application to: @applications/Tool.app\n"}, false},
    {"CompressedApplicationGoesToTheFolderHoldingIt", {act({{"Command", "installapp"}, {"InstallFrom", "@update/No.zip"}, {"InstallTo", "@applications/Tool.app"}, {"IsCompressed", true}})}, false, {"Performing installapp\n", "Error installing application to: @applications\n"}, false},
    {"DaemonThatDoesNotLoad", {act({{"Command", "installdaemon"}, {"Identifier", "com.olvara.D"}, {"BinaryFile", "@update/d"}})}, false, {"Performing installdaemon\n", "Error installing daemon with identifier: com.olvara.D\n"}, false, "exit 1"},
    // Texts from the script are logged escaped and cut at 1 KiB with their length noted.
    {"CopyFromAPathHoldingAnEndOfLineAndATab", {act({{"Command", "updatefiles"}, {"From", "@update/f\nforged\t[2J"}, {"To", "@tmp/t"}})}, false, {"Performing updatefiles\n", "Error copying files from: @update/f\\nforged\\t[2J to: @tmp/t\n"}, true, "exit 0", ToolTable::kCp},
    {"PackagePathOver1KiB", {act({{"Command", "installpkg"}, {"Package", kLong}})}, false, {"Performing installpkg\n", "Error installing package: /" + std::string(1023, 'p') + "... (1101 bytes)\n"}, true, "exit 0", ToolTable::kInstaller},
    {"DaemonIdentifierOnTwoLines", {act({{"Command", "installdaemon"}, {"Identifier", "com.olvara.D\rforged"}, {"BinaryFile", "@update/d"}})}, false, {"Performing installdaemon\n", "Error installing daemon with identifier: com.olvara.D\\rforged\n"}, false, "exit 1"},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Rows, AnInstallScript, testing::ValuesIn(kScriptRows),
                         [](const auto& info) { return info.param.name; });

TEST(AnInstallScriptRun, TakesNoActionsAnEmptyListAndAnythingButAListAsTheyAre) {
    struct Row {
        std::optional<PlistValue> actions;
        bool succeeds;
        std::vector<std::string> errors;
    };
    for (const Row& row : {Row{std::nullopt, true, {}}, Row{PlistValue::Array{}, true, {}},
                           Row{PlistValue("delete"), false, {"Error: Actions is not an array\n"}}}) {
        InstallationMachine machine;
        PlistDictionary script;
        if (row.actions) script.set("Actions", *row.actions);
        auto update = machine.updateFor(script);
        KoraInstaller installer = machine.installer();
        update->startInstallation(installer, &machine.helper);
        ASSERT_EQ(machine.delegate.calls.size(), 1u);
        EXPECT_EQ(machine.delegate.calls[0].succeeded, row.succeeds);
        EXPECT_EQ(textsOf(machine.log, kPriorityError), row.errors);
        EXPECT_FALSE(fs::exists(machine.tmp / "Upd"));
    }
}

TEST(AnInstallScriptRun, RunsEveryCommandThroughTheRealTools) {
    InstallationMachine machine;
    const fs::path alice = machine.users / "alice/Library/Preferences";
    const fs::path bob = machine.users / "bob/Library/Preferences";
    fs::create_directories(alice);
    fs::create_directories(bob);
    writePropertyList(PlistValue(dictionaryOf({{"Mode", "b"}})), alice / "com.olvara.Tool.plist");
    writePropertyList(PlistValue(dictionaryOf({{"Mode", "c"}})), bob / "com.olvara.Tool.plist");
    fs::create_directories(machine.tmp / "old/inner");
    std::ofstream(machine.tmp / "kept") << "a File beside a Folder is not deleted";

    ZipWriter payload;
    payload.file("Upd/payload/a.txt", "a", 0600)
        .file("Upd/Tool.app/Contents/Info.plist", "new")
        .file("Upd/Other.zip", ZipWriter().file("Other.app/Contents/Info.plist", "other").bytes())
        .file("Upd/tooldaemon", "#!/bin/sh\n", 0755);
    auto update = machine.updateFor(
        scriptOf({act({{"Command", "delete"}, {"Folder", "@tmp/old"}, {"File", "@tmp/kept"}}),
                  act({{"Command", "updatefiles"}, {"From", "@update/payload"}, {"To", "@tmp/target"}}),
                  act({{"Command", "installpkg"}, {"Package", "@update/tool.deb"}}),
                  act({{"Command", "installapp"}, {"InstallFrom", "@update/Tool.app"},
                       {"InstallTo", "@applications/Tool.app"}}),
                  act({{"Command", "installapp"}, {"InstallFrom", "@update/Other.zip"},
                       {"InstallTo", "@applications/Other.app"}, {"IsCompressed", true}}),
                  act({{"Command", "installdaemon"}, {"Identifier", "com.olvara.ToolDaemon"},
                       {"BinaryFile", "@update/tooldaemon"}}),
                  act({{"Command", "updatesetting"}, {"Application", "com.olvara.Tool"},
                       {"Key", "Mode"}, {"NewValue", "fast"}, {"DefaultValues", "a;b"}})}),
        payload);
    KoraInstaller installer = machine.installer();

    update->startInstallation(installer, &machine.helper);

    ASSERT_EQ(machine.delegate.calls.size(), 1u);
    EXPECT_TRUE(machine.delegate.calls[0].succeeded) << testing::PrintToString(textsOf(machine.log));
    EXPECT_TRUE(containsInOrder(
        textsOf(machine.log),
        {"Performing delete\n", "Performing updatefiles\n", "Performing installpkg\n",
         "Performing installapp\n", "Performing installapp\n", "Performing installdaemon\n",
         "Performing updatesetting\n"}));
    EXPECT_FALSE(fs::exists(machine.tmp / "old"));
    EXPECT_TRUE(fs::exists(machine.tmp / "kept"));
    EXPECT_EQ(fs::status(machine.tmp / "target/a.txt").permissions(), fs::perms(0755));
    EXPECT_TRUE(fs::exists(machine.applications / "Tool.app/Contents/Info.plist"));
    EXPECT_TRUE(fs::exists(machine.applications / "Other.app/Contents/Info.plist"));
    EXPECT_TRUE(fs::exists(machine.root / "Library/PrivilegedHelperTools/com.olvara.ToolDaemon"));
    const std::string jobFile = (machine.root / "Library/LaunchDaemons/com.olvara.ToolDaemon.plist").string();
    EXPECT_EQ(machine.callsMade(),
              machine.expand("installer -pkg @update/tool.deb -target /\nlaunchctl load ") + jobFile + "\n");
    EXPECT_EQ(readPropertyListDictionary(alice / "com.olvara.Tool.plist")->string("Mode"), "fast");
    EXPECT_EQ(readPropertyListDictionary(bob / "com.olvara.Tool.plist")->string("Mode"), "c");
    EXPECT_FALSE(fs::exists(machine.tmp / "Upd"));
}

struct RunRow {
    std::string name;
    std::function<std::optional<std::string>(std::string)> hash;
    std::optional<std::string> parameters;
    bool matches;
    bool stopped;
    bool started;
};

void PrintTo(const RunRow& row, std::ostream* out) { *out << row.name; }

class AnInstallationRun : public testing::TestWithParam<RunRow> {};

TEST_P(AnInstallationRun, ChecksTheDigestAndRestartsOnlyWhenAsked) {
    const RunRow& row = GetParam();
    InstallationMachine machine;
    machine.workspace.bundles["com.olvara.Tool"] = machine.applications / "Tool.app";
    machine.launcher.owners[machine.applications / "Tool.app"] = 1000;
    auto update = machine.updateFor(scriptOf({}));
    update->setHash(row.hash(*update->hash()));
    update->setParameters(row.parameters);
    const fs::path archive = *update->localFilePath();
    KoraInstaller installer = machine.installer();

    update->startInstallation(installer, &machine.helper);

    EXPECT_TRUE(update->hasStartedInstallation());
    ASSERT_EQ(machine.delegate.calls.size(), 1u);
    const RecordingDelegate::Call call = machine.delegate.calls[0];
    EXPECT_EQ(call.succeeded, row.matches);
    EXPECT_FALSE(call.installationComplete) << "the delegate hears first";
    EXPECT_TRUE(call.archiveStillThere);
    EXPECT_EQ(machine.running.asked.size(), row.stopped ? 1u : 0u);
    EXPECT_EQ(machine.launcher.launched.size(), row.started ? 1u : 0u);
    if (row.matches) {
        EXPECT_THAT(machine.log, IsEmpty());
        EXPECT_TRUE(update->installationComplete());
        EXPECT_FALSE(fs::exists(archive));
        EXPECT_FALSE(fs::exists(machine.tmp / "Upd"));
    } else {
        EXPECT_THAT(textsOf(machine.log), ElementsAre("Mismatch between local file hash and remote file hash.\n",
                                                      "Will not tempt to install\n"));
        EXPECT_FALSE(update->installationComplete());
        EXPECT_TRUE(fs::exists(archive));
        EXPECT_FALSE(fs::exists(machine.tmp / "Upd")) << "nothing is unpacked";
    }
}

std::optional<std::string> same(std::string hash) { return hash; }
std::optional<std::string> lower(std::string hash) { return lowerCased(hash); }
std::optional<std::string> otherDigest(std::string) { return std::string(40, '0'); }
std::optional<std::string> none(std::string) { return std::nullopt; }

// clang-format off
INSTANTIATE_TEST_SUITE_P(Rows, AnInstallationRun, testing::Values(
    RunRow{"UpperCaseDigest", same, std::nullopt, true, false, false}, RunRow{"LowerCaseDigest", lower, std::nullopt, true, false, false},
    RunRow{"OtherDigest", otherDigest, "-restart", false, false, false}, RunRow{"NoDigest", none, std::nullopt, false, false, false},
    RunRow{"Restart", same, "-restart", true, true, true}, RunRow{"RestartInOtherCaseOnlyStops", same, "-Restart", true, true, false},
    RunRow{"OtherParameters", same, "-quiet", true, false, false}),
    [](const auto& info) { return info.param.name; });
// clang-format on

TEST(AnUnreadableScript, FailsTheRunWhichStillCleansUp) {
    struct Row {
        std::optional<std::string> script;
        std::string archiveName;
    };
    for (const Row& row : {Row{std::nullopt, "Upd.zip"}, Row{"<plist><dict>", "Upd.zip"},
                           Row{propertyListXml(PlistValue("not a dictionary")), "Upd.zip"},
                           Row{propertyListXml(PlistValue(scriptOf({}))), "Upd"}}) {
        InstallationMachine machine;
        ZipWriter payload;
        if (row.script) payload.file("Upd/update.plist", *row.script);
        auto update = machine.updateFor(std::nullopt, payload, row.archiveName);
        KoraInstaller installer = machine.installer();
        update->startInstallation(installer, &machine.helper);
        ASSERT_EQ(machine.delegate.calls.size(), 1u) << row.archiveName;
        EXPECT_FALSE(machine.delegate.calls[0].succeeded);
        EXPECT_THAT(machine.log, ElementsAre(LogLine{kPriorityError, "Error unzipping or parsing script\n"}));
        EXPECT_TRUE(update->installationComplete());
        EXPECT_TRUE(fs::is_empty(machine.tmp));
    }
}

struct SelfUpdateRow {
    std::string name;
    PlistValue::Array actions;
    bool helperPresent;
    std::optional<std::string> helperFailure;
    // The binary the helper was handed, per call.
    std::vector<std::optional<std::string>> handedOver;
    std::vector<std::string> lines;
};

void PrintTo(const SelfUpdateRow& row, std::ostream* out) { *out << row.name; }

class ASelfUpdate : public testing::TestWithParam<SelfUpdateRow> {};

TEST_P(ASelfUpdate, HandsTheFirstBinaryOverOnceAndKeepsTheUpdateFolder) {
    const SelfUpdateRow& row = GetParam();
    InstallationMachine machine;
    machine.helper.isPresent = row.helperPresent;
    machine.helper.failure = row.helperFailure;
    auto update = machine.updateFor(scriptOf(row.actions));
    KoraInstaller installer = machine.installer();

    update->startInstallation(installer, &machine.helper);

    ASSERT_EQ(machine.delegate.calls.size(), 1u);
    EXPECT_TRUE(machine.delegate.calls[0].succeeded);
    std::vector<std::string> lines;
    for (const std::string& line : row.lines) lines.push_back(machine.expand(line));
    EXPECT_EQ(textsOf(machine.log), lines);
    ASSERT_EQ(machine.helper.calls.size(), row.handedOver.size());
    for (std::size_t i = 0; i < row.handedOver.size(); ++i) {
        EXPECT_EQ(machine.helper.calls[i].first, "com.olvara.Korad");
        const auto expected = row.handedOver[i] ? std::optional(machine.expand(*row.handedOver[i]))
                                                : std::nullopt;
        EXPECT_EQ(machine.helper.calls[i].second, expected);
    }
    EXPECT_TRUE(fs::exists(machine.tmp / "Upd/update.plist"));
    EXPECT_FALSE(fs::exists(*update->localFilePath()));
}

const PlistValue kUpdateself = act({{"Command", "updateself"}, {"Binary", "@update/korad"}});
const std::string kWill = "Will update self\n", kReady = "Ready to call PellinHelper and upgrade self from file: ";

// clang-format off
INSTANTIATE_TEST_SUITE_P(Rows, ASelfUpdate, testing::Values(
    SelfUpdateRow{"SeveralActionsOneCall", {kUpdateself, act({{"Command", "UpdateSelf"}, {"Binary", "@update/other"}})}, true, std::nullopt, {"@update/korad"}, {kWill, kReady + "@update/korad"}},
    SelfUpdateRow{"WithoutBinary", {act({{"Command", "updateself"}})}, true, std::nullopt, {std::nullopt}, {kWill, kReady + "(null)"}},
    SelfUpdateRow{"NoHelperOnTheBus", {kUpdateself}, false, std::nullopt, {}, {kWill}},
    SelfUpdateRow{"HelperCallFails", {kUpdateself}, true, "no reply", {}, {kWill, kReady + "@update/korad", "Error upgrading self: no reply\n"}}),
    [](const auto& info) { return info.param.name; });
// clang-format on

struct HostileRow {
    std::string name;
    std::function<void(ZipWriter&, const fs::path& outside)> entries;
};

void PrintTo(const HostileRow& row, std::ostream* out) { *out << row.name; }

class AHostileArchive : public testing::TestWithParam<HostileRow> {};

// Every file below `root` except the unpack folder, with its content.
std::map<std::string, std::string> everythingOutside(const fs::path& root, const fs::path& unpackFolder) {
    std::map<std::string, std::string> files;
    for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator(); ++it) {
        if (it->path() == unpackFolder) {
            it.disable_recursion_pending();
            continue;
        }
        files[it->path().string()] = it->is_regular_file() ? fileText(it->path()) : "";
    }
    return files;
}

TEST_P(AHostileArchive, ChangesNothingOutsideTheUnpackFolder) {
    InstallationMachine machine;
    const fs::path outside = machine.root / "outside";
    fs::create_directories(outside);
    std::ofstream(outside / "victim.txt") << "original";
    ZipWriter payload;
    GetParam().entries(payload, outside);
    auto update = machine.updateFor(scriptOf({}), payload);
    KoraInstaller installer = machine.installer();
    const auto before = everythingOutside(machine.root, machine.tmp);

    update->startInstallation(installer, &machine.helper);

    EXPECT_EQ(everythingOutside(machine.root, machine.tmp), before);
    ASSERT_EQ(machine.delegate.calls.size(), 1u);
    EXPECT_TRUE(machine.delegate.calls[0].succeeded);
}

using Zip = ZipWriter&;
using Outside = const fs::path&;
// clang-format off
INSTANTIATE_TEST_SUITE_P(Rows, AHostileArchive, testing::Values(
    HostileRow{"ParentFolderEntry", [](Zip zip, Outside) { zip.file("../escape.txt", "x"); }},
    HostileRow{"ParentFolderInsideAName", [](Zip zip, Outside) { zip.file("Upd/../../outside/victim.txt", "x"); }},
    HostileRow{"AbsoluteEntry", [](Zip zip, Outside outside) { zip.file((outside / "victim.txt").string(), "overwritten"); }},
    HostileRow{"WriteThroughASymbolicLinkToAFolder", [](Zip zip, Outside outside) { zip.symlink("Upd/link", outside.string()).file("Upd/link/planted.txt", "x"); }},
    HostileRow{"WriteThroughASymbolicLinkToAFile", [](Zip zip, Outside outside) { zip.symlink("Upd/victim", (outside / "victim.txt").string()).file("Upd/victim", "overwritten"); }}),
    [](const auto& info) { return info.param.name; });
// clang-format on

}  // namespace
}  // namespace kora::test
