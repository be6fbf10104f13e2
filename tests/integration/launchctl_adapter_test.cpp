// The real launchctl adapter: with --root below a temporary root, without it in a
// sandbox without systemd, where it must refuse.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "support/command.h"
#include "support/file_text.h"
#include "support/temp_dir.h"

namespace kora {
namespace {

namespace fs = std::filesystem;

const std::string kLaunchctl = ADAPTER_BINARY;
constexpr const char* kMarker =
    "# Written by launchctl load from a job description; launchctl unload removes it.\n";

std::string plist(const std::string& dictionaryBody) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" +
           dictionaryBody + "</dict></plist>\n";
}

std::string helperJob(const std::string& label, const std::string& program,
                      const std::string& machServices) {
    return plist("<key>Label</key><string>" + label +
                 "</string><key>ProgramArguments</key><array><string>" + program +
                 "</string><string>--verbose</string></array><key>RunAtLoad</key><true/>"
                 "<key>MachServices</key><dict>" +
                 machServices + "</dict>");
}

class LaunchctlAdapter : public testing::Test {
  protected:
    void SetUp() override { fs::create_directory(root()); }

    fs::path root() const { return dir_.path() / "root"; }
    fs::path unit(const std::string& label) const {
        return root() / "etc/systemd/system" / (label + ".service");
    }
    fs::path activation(const std::string& name) const {
        return root() / "usr/share/dbus-1/system-services" / (name + ".service");
    }
    fs::path job(const std::string& text) {
        const fs::path path = dir_.path() / ("job" + std::to_string(++jobs_) + ".plist");
        writeFileText(path, text);
        return path;
    }
    CommandOutcome launchctl(const std::string& command, const fs::path& file) const {
        return runCommand({kLaunchctl, "--root", root(), command, file}, ErrorStream::apart);
    }
    // Every file and link below the root, relative to it, in name order.
    std::vector<std::string> filesBelowRoot() const {
        std::vector<std::string> files;
        for (const auto& entry : fs::recursive_directory_iterator(root())) {
            if (!entry.is_directory()) files.push_back(fs::relative(entry.path(), root()));
        }
        std::sort(files.begin(), files.end());
        return files;
    }

    TempDir dir_;
    int jobs_ = 0;
};

TEST_F(LaunchctlAdapter, LoadWritesTheUnitAndActivationFilesAndUnloadRemovesThem) {
    const fs::path file = job(helperJob("com.example.Helper", "/opt/helper/run",
                                        "<key>com.example.Helper</key><true/>"
                                        "<key>com.example.HelperAdmin</key><true/>"));
    const CommandOutcome loaded = launchctl("load", file);
    ASSERT_EQ(loaded.status, 0) << loaded.errors;
    EXPECT_EQ(loaded.errors, "");
    EXPECT_EQ(filesBelowRoot(),
              (std::vector<std::string>{
                  "etc/systemd/system/com.example.Helper.service",
                  "usr/share/dbus-1/system-services/com.example.Helper.service",
                  "usr/share/dbus-1/system-services/com.example.HelperAdmin.service"}));
    // The unit's text itself is the conversion's matter (launchctl_job_test).
    EXPECT_TRUE(fileText(unit("com.example.Helper")).starts_with(std::string(kMarker) + "[Unit]\n"));
    EXPECT_EQ(fileText(activation("com.example.HelperAdmin")),
              std::string(kMarker) +
                  "[D-BUS Service]\n"
                  "Name=com.example.HelperAdmin\n"
                  "Exec=/bin/false\n"
                  "User=root\n"
                  "SystemdService=com.example.Helper.service\n");

    const CommandOutcome unloaded = launchctl("unload", file);
    ASSERT_EQ(unloaded.status, 0) << unloaded.errors;
    EXPECT_EQ(filesBelowRoot(), std::vector<std::string>{});

    const CommandOutcome again = launchctl("unload", file);
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(again.errors, "launchctl: com.example.Helper is not loaded\n");
}

// systemd's own parser reports any quoting, setting or value it cannot read.
TEST_F(LaunchctlAdapter, WritesAUnitThatSystemdAcceptsWhateverTheArguments) {
    if (runCommand({"systemd-analyze", "--version"}, ErrorStream::apart).status != 0)
        GTEST_SKIP() << "systemd-analyze is not installed";
    const fs::path file = job(plist(
        "<key>Label</key><string>com.example.Quoting</string>"
        "<key>ProgramArguments</key><array><string>/bin/echo</string><string>two words</string>"
        "<string>100%</string><string>$HOME</string><string>say "
        "\"hi\"</string><string>it's</string>"
        "<string>C:\\dir</string><string>;</string><string></string><string>tab\tx</string>"
        "</array><key>KeepAlive</key><true/><key>ThrottleInterval</key><integer>5</integer>"
        "<key>StandardOutPath</key><string>/var/log/50% x.log</string>"
        "<key>MachServices</key><dict><key>com.example.Quoting</key><true/></dict>"));
    ASSERT_EQ(launchctl("load", file).status, 0);
    const CommandOutcome verified =
        runCommand({"systemd-analyze", "verify", unit("com.example.Quoting")}, ErrorStream::apart);
    EXPECT_EQ(verified.status, 0) << verified.errors;
    EXPECT_EQ(verified.output + verified.errors, "");
}

TEST_F(LaunchctlAdapter, ReloadingReplacesItsOwnFilesAndUnloadLeavesOtherJobsAlone) {
    const fs::path first =
        job(helperJob("com.example.One", "/opt/one", "<key>org.example.One</key><true/>"));
    const fs::path second =
        job(helperJob("com.example.Two", "/opt/two", "<key>org.example.Two</key><true/>"));
    ASSERT_EQ(launchctl("load", first).status, 0);
    ASSERT_EQ(launchctl("load", second).status, 0);
    // A new program and no name: unloading still finds the activation file.
    writeFileText(first, helperJob("com.example.One", "/opt/one-2", ""));
    ASSERT_EQ(launchctl("load", first).status, 0);
    EXPECT_NE(fileText(unit("com.example.One")).find("ExecStart=/opt/one-2 --verbose\n"),
              std::string::npos);

    ASSERT_EQ(launchctl("unload", first).status, 0);
    EXPECT_EQ(filesBelowRoot(), (std::vector<std::string>{
                                    "etc/systemd/system/com.example.Two.service",
                                    "usr/share/dbus-1/system-services/org.example.Two.service"}));
}

TEST_F(LaunchctlAdapter, LeavesAloneEveryFileItDidNotWrite) {
    const fs::path file =
        job(helperJob("com.example.Helper", "/opt/helper", "<key>org.example.Bus</key><true/>"));
    const std::string theirs = "[Service]\nExecStart=/usr/bin/theirs\n";

    writeFileText(unit("com.example.Helper"), theirs);
    const CommandOutcome overUnit = launchctl("load", file);
    EXPECT_EQ(overUnit.status, 1);
    EXPECT_NE(overUnit.errors.find("was not written by launchctl"), std::string::npos)
        << overUnit.errors;
    const CommandOutcome removingUnit = launchctl("unload", file);
    EXPECT_EQ(removingUnit.status, 1);
    EXPECT_EQ(fileText(unit("com.example.Helper")), theirs);
    EXPECT_EQ(filesBelowRoot(),
              std::vector<std::string>{"etc/systemd/system/com.example.Helper.service"});

    // A masked unit is a link to /dev/null.
    fs::remove(unit("com.example.Helper"));
    fs::create_symlink("/dev/null", unit("com.example.Helper"));
    EXPECT_EQ(launchctl("load", file).status, 1);
    EXPECT_TRUE(fs::is_symlink(unit("com.example.Helper")));

    // Another package's activation file for the same name.
    fs::remove(unit("com.example.Helper"));
    writeFileText(activation("org.example.Bus"), theirs);
    EXPECT_EQ(launchctl("load", file).status, 1);
    EXPECT_EQ(filesBelowRoot(),
              std::vector<std::string>{"usr/share/dbus-1/system-services/org.example.Bus.service"});
    EXPECT_EQ(fileText(activation("org.example.Bus")), theirs);
}

TEST_F(LaunchctlAdapter, WritesNoFileWhenOneOfItsFoldersCannotBeMade) {
    const fs::path file =
        job(helperJob("com.example.Helper", "/opt/helper", "<key>org.example.Bus</key><true/>"));
    writeFileText(root() / "usr/share/dbus-1/system-services", "a file where a folder belongs");
    const CommandOutcome run = launchctl("load", file);
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(
        run.errors.find("cannot create " + (root() / "usr/share/dbus-1/system-services").string()),
        std::string::npos)
        << run.errors;
    EXPECT_EQ(filesBelowRoot(), std::vector<std::string>{"usr/share/dbus-1/system-services"});
}

struct BadJob {
    const char* name;
    std::string content;
    const char* reason;  // found in the one error line
};

void PrintTo(const BadJob& row, std::ostream* out) {
    *out << row.name;
}

class ABadJobFile : public LaunchctlAdapter, public testing::WithParamInterface<BadJob> {};

TEST_P(ABadJobFile, IsRefusedWithItsReasonAndNothingIsWritten) {
    const fs::path file = job(GetParam().content);
    const CommandOutcome run = launchctl("load", file);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors.rfind("launchctl: " + file.string() + ": ", 0), 0u) << run.errors;
    EXPECT_NE(run.errors.find(GetParam().reason), std::string::npos) << run.errors;
    EXPECT_EQ(std::count(run.errors.begin(), run.errors.end(), '\n'), 1) << run.errors;
    EXPECT_EQ(filesBelowRoot(), std::vector<std::string>{});
}

const std::string kLabel = "<key>Label</key><string>org.example.job</string>";
const std::string kProgram = "<key>ProgramArguments</key><array><string>/bin/true</string></array>";

// A valid job with one more key.
std::string jobWith(const std::string& key, const std::string& value) {
    return plist(kLabel + kProgram + "<key>" + key + "</key>" + value);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Rows, ABadJobFile, testing::Values(
    BadJob{"NotAPropertyList", "Label=org.example.job\n", "not a readable property list"},
    BadJob{"ACorruptBinaryPropertyList", std::string("bplist00\xd1\x01\x02", 11), "not a readable property list"},
    BadJob{"AnArrayAtTheRoot", "<?xml version=\"1.0\"?><plist version=\"1.0\"><array/></plist>", "must be a dictionary, not an array"},
    BadJob{"NoLabel", plist(kProgram), "has no Label"},
    BadJob{"ALabelThatIsNotAString", plist("<key>Label</key><integer>7</integer>" + kProgram), "Label must be a string, not an integer"},
    BadJob{"ALabelWithASlash", plist("<key>Label</key><string>../../bin/sh</string>" + kProgram), "Label \"../../bin/sh\" is not a safe service name"},
    BadJob{"ALabelWithAControlCharacter", plist("<key>Label</key><string>a&#9;b</string>" + kProgram), "Label \"a\\x09b\" is not a safe service name"},
    BadJob{"NoProgramArguments", plist(kLabel), "has no ProgramArguments"},
    BadJob{"EmptyProgramArguments", plist(kLabel + "<key>ProgramArguments</key><array/>"), "has no ProgramArguments"},
    BadJob{"ProgramArgumentsAsAString", plist(kLabel + "<key>ProgramArguments</key><string>/bin/true</string>"), "ProgramArguments must be an array, not a string"},
    BadJob{"AnArgumentThatIsNotAString", plist(kLabel + "<key>ProgramArguments</key><array><string>/bin/true</string><integer>1</integer></array>"), "every element of ProgramArguments must be a string, not an integer"},
    BadJob{"ARelativeProgram", plist(kLabel + "<key>ProgramArguments</key><array><string>true</string></array>"), "must be an absolute path"},
    BadJob{"AKeepAliveDictionary", jobWith("KeepAlive", "<dict><key>SuccessfulExit</key><false/></dict>"), "KeepAlive as a dictionary of conditions is not supported"},
    BadJob{"AKeepAliveString", jobWith("KeepAlive", "<string>yes</string>"), "KeepAlive must be a boolean, not a string"},
    BadJob{"ARunAtLoadInteger", jobWith("RunAtLoad", "<integer>1</integer>"), "RunAtLoad must be a boolean, not an integer"},
    BadJob{"ANegativeThrottleInterval", jobWith("ThrottleInterval", "<integer>-1</integer>"), "ThrottleInterval must be a number of seconds from 0 to 2147483647"},
    BadJob{"AThrottleIntervalOneTooLarge", jobWith("ThrottleInterval", "<integer>2147483648</integer>"), "ThrottleInterval must be a number of seconds from 0 to 2147483647"},
    BadJob{"ARelativeLogPath", jobWith("StandardOutPath", "<string>out.log</string>"), "StandardOutPath \"out.log\" must be an absolute path"},
    BadJob{"MachServicesAsAnArray", jobWith("MachServices", "<array/>"), "MachServices must be a dictionary, not an array"},
    BadJob{"AMachServiceValueThatIsAString", jobWith("MachServices", "<dict><key>org.example.A</key><string>x</string></dict>"), "MachServices \"org.example.A\" must be a boolean or a dictionary"},
    BadJob{"AMachServiceNameWithASlash", jobWith("MachServices", "<dict><key>org/example</key><true/></dict>"), "MachServices name \"org/example\" is not a valid D-Bus name"}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

TEST_F(LaunchctlAdapter, AMissingJobFileIsRefused) {
    const CommandOutcome run = launchctl("load", dir_.path() / "missing.plist");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.errors.find("not a readable property list"), std::string::npos) << run.errors;
}

TEST_F(LaunchctlAdapter, AWrongCommandLineExitsWithStatusTwo) {
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{},
                                               {"load"},
                                               {"start", "job.plist"},
                                               {"--root"},
                                               {"load", "a", "b"},
                                               {"-w", "load", "a"}}) {
        std::vector<std::string> command{kLaunchctl};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const CommandOutcome run = runCommand(command, ErrorStream::apart);
        EXPECT_EQ(run.status, 2) << testing::PrintToString(arguments);
        EXPECT_NE(run.errors.find("Usage: launchctl"), std::string::npos) << run.errors;
    }
}

TEST_F(LaunchctlAdapter, HelpDescribesTheCommandsOptionsAndExitStatus) {
    const CommandOutcome run = runCommand({kLaunchctl, "--help"}, ErrorStream::apart);
    EXPECT_EQ(run.status, 0);
    for (const char* part :
         {"SYNOPSIS", "load FILE", "unload FILE", "--root DIR", "KeepAlive", "EXIT STATUS"})
        EXPECT_NE(run.output.find(part), std::string::npos) << part;
}

// In the sandbox /run is empty and /etc read-only; the adapter runs from the built-in folder.
TEST_F(LaunchctlAdapter, WithoutSystemdItSaysSoInOneLineAndFails) {
    if (runCommand({"bwrap", "--ro-bind", "/", "/", "true"}, ErrorStream::apart).status != 0)
        GTEST_SKIP() << "bubblewrap cannot run here";
    const fs::path file = job(helperJob("com.example.Helper", "/opt/helper", ""));
    for (const std::string command : {"load", "unload"}) {
        const CommandOutcome run =
            runCommand({KORAD_SOURCE_DIR "/scripts/korad-sandbox", "--adapters", KORAD_BUILD_DIR,
                        KORAD_LIBEXEC_DIR, "--ro-bind", dir_.path(), "--",
                        KORAD_LIBEXEC_DIR "/launchctl", command, file},
                       ErrorStream::apart);
        EXPECT_EQ(run.status, 1) << run.errors;
        EXPECT_EQ(run.errors,
                  "launchctl: systemd is not running here (no /run/systemd/system), so "
                  "com.example.Helper was not " +
                      command + "ed\n");
    }
}

}  // namespace
}  // namespace kora
