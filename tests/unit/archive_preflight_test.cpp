#include "preflight/archive_preflight.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "support/installation_machine.h"

namespace kora::test {
namespace {

using Severity = PreflightProblem::Severity;

// An archive "Upd.zip": the folder "Upd/" with `script` as its "update.plist"
// (none when absent) and whatever `entries` adds.
ZipWriter archiveWith(const std::optional<PlistValue>& script, ZipWriter entries = {}) {
    entries.folder("Upd/");
    if (script) entries.file("Upd/update.plist", propertyListXml(*script));
    return entries;
}

PlistValue actions(PlistValue::Array list) { return dictionaryOf({{"Actions", std::move(list)}}); }

struct PreflightRow {
    std::string name;
    ZipWriter archive;
    std::vector<PreflightProblem> problems;
};

void PrintTo(const PreflightRow& row, std::ostream* out) { *out << row.name; }

class AnArchivePreflight : public testing::TestWithParam<PreflightRow> {};

TEST_P(AnArchivePreflight, ListsEveryProblemInWords) {
    TempDir temp;
    GetParam().archive.write(temp.path() / "Upd.zip");
    EXPECT_EQ(preflightUpdateArchive(temp.path() / "Upd.zip"), GetParam().problems);
}

PreflightProblem error(std::string text) { return {Severity::Error, std::move(text)}; }
PreflightProblem warning(std::string text) { return {Severity::Warning, std::move(text)}; }

const std::string kStops = "\"Error unzipping or parsing script\"";

INSTANTIATE_TEST_SUITE_P(
    Rows, AnArchivePreflight,
    testing::Values(
        PreflightRow{"EverythingInPlace",
                     archiveWith(actions({act({{"Command", "InstallPkg"}, {"Package", "@update/pkg/"}}),
                                          act({{"Command", "updateself"}, {"Binary", "@update/korad"}})}),
                                 ZipWriter().file("Upd/pkg/a.deb", "").file("Upd/korad", "")),
                     {}},
        PreflightRow{"NoScript", archiveWith(std::nullopt),
                     {error("The update holds no readable \"Upd/update.plist\": the daemon would stop with " + kStops)}},
        PreflightRow{"ScriptThatIsNoDictionary", archiveWith(PlistValue(PlistValue::Array{})),
                     {error("\"Upd/update.plist\" is not a property-list dictionary: the daemon would stop with " + kStops)}},
        PreflightRow{"ActionsThatAreNoArray", archiveWith(dictionaryOf({{"Actions", 3}})),
                     {error("\"Actions\" is a number, not an array")}},
        PreflightRow{
            "EveryScriptError",
            archiveWith(actions({PlistValue("delete"), act({{"Command", 7}}), act({{"Command", "install pkg"}}),
                                 act({{"Command", "updatefiles"}, {"From", "@tmp/a"}}),
                                 act({{"Command", "installapp"}, {"InstallFrom", PlistValue::Array{}},
                                      {"InstallTo", "@tmp/A.app"}, {"IsCompressed", "yes"}}),
                                 act({{"Command", "updatesetting"}, {"Application", "a"}, {"Key", "k"},
                                      {"NewValue", 1}}),
                                 act({{"File", "@tmp/x"}})})),
            {error("Action 1 is text, not a dictionary"), error("Action 2: \"Command\" is a number, not text"),
             error("Action 3: unknown command \"install pkg\""),
             error("Action 4 (updatefiles): the daemon would stop with \"Syntax error: To missing\""),
             error("Action 5 (installapp): \"InstallFrom\" is an array, not text"),
             error("Action 5 (installapp): \"IsCompressed\" is text, not a boolean"),
             error("Action 6 (updatesetting): the daemon would stop with \"Syntax error: Default values missing\""),
             warning("Action 7 has no \"Command\" and is passed over")}},
        PreflightRow{"FilesTheScriptNamesButTheArchiveLacks",
                     archiveWith(actions({act({{"Command", "updatefiles"}, {"From", "@update/new"}, {"To", "@tmp/x"}}),
                                          act({{"Command", "installpkg"}, {"Package", "@updatepkg"}})}),
                                 ZipWriter().file("Upd/newer", "")),
                     {warning("Action 1 (updatefiles): \"From\" names \"@update/new\", which the update does not hold"),
                      warning("Action 2 (installpkg): \"Package\" names \"@updatepkg\", which the update does not hold")}},
        PreflightRow{"EntriesOutsideTheFolder",
                     archiveWith(actions({}), ZipWriter()
                                                  .file("Other/a", "")
                                                  .file("Other/b", "")
                                                  .file("../up", "")
                                                  .file("/etc/passwd", "")
                                                  .symlink("Upd/link", "/etc")
                                                  .symlink("Upd/near", "sub/file")),
                     {warning("The entry \"Other\" is not inside the folder \"Upd\" that the archive is named "
                              "after; it is unpacked beside that folder and the script cannot name it"),
                      warning("The entry \"../up\" would leave the unpack folder; unzip strips \"../\" and a "
                              "leading \"/\", so it lands somewhere else than its name says"),
                      warning("The entry \"/etc/passwd\" would leave the unpack folder; unzip strips \"../\" and "
                              "a leading \"/\", so it lands somewhere else than its name says"),
                      warning("The entry \"Upd/link\" is a symbolic link to \"/etc\", outside the update")}}),
    [](const auto& info) { return info.param.name; });

TEST(AnArchivePreflightRun, RefusesWhatIsNoZipArchiveAndANameWithoutExtension) {
    TempDir temp;
    std::ofstream(temp.path() / "Upd.zip") << "PK not really";
    EXPECT_EQ(preflightUpdateArchive(temp.path() / "Upd.zip"),
              std::vector{error("The archive cannot be read: it is not a zip archive (no end of central directory)")});
    archiveWith(actions({})).write(temp.path() / "Upd");
    EXPECT_EQ(preflightUpdateArchive(temp.path() / "Upd"),
              std::vector{error("The archive name \"Upd\" has no extension: the daemon would unpack it onto "
                                "itself and stop with " + kStops)});
}

TEST(AnArchivePreflightRun, ReadsDeflatedArchivesAndUnpackedFolders) {
    TempDir temp;
    const fs::path folder = temp.path() / "Upd";
    fs::create_directories(folder / "payload");
    writePropertyList(actions({act({{"Command", "updatefiles"}, {"From", "@update/payload"}, {"To", "@tmp/p"}}),
                               act({{"Command", "installpkg"}, {"Package", "@update/gone.deb"}})}),
                      folder / "update.plist");
    std::ofstream(folder / "payload/big.txt") << std::string(100000, 'k');
    const std::string command = "cd '" + temp.path().string() + "' && zip -qr Upd.zip Upd";
    ASSERT_EQ(std::system(command.c_str()), 0);
    const std::vector expected{
        warning("Action 2 (installpkg): \"Package\" names \"@update/gone.deb\", which the update does not hold")};
    EXPECT_EQ(preflightUpdateArchive(temp.path() / "Upd.zip"), expected);

    std::ofstream(folder / "gone.deb") << "now here";
    EXPECT_EQ(preflightUpdateArchive(temp.path() / "Upd.zip", folder), std::vector<PreflightProblem>{});
}

}  // namespace
}  // namespace kora::test
