// The launchctl adapter's conversion of a job description into a systemd unit
// text. Activation files, folders and refusals of the real program
// are in tests/integration/launchctl_adapter_test.cpp.

#include <gtest/gtest.h>

#include <string>

#include "job_description.h"
#include "systemd_unit.h"

namespace kora {
namespace {

JobDescription jobFrom(const std::string& dictionaryBody) {
    const std::string xml =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" +
        dictionaryBody + "</dict></plist>";
    const std::optional<PlistValue> root =
        parsePropertyList({reinterpret_cast<const std::uint8_t*>(xml.data()), xml.size()});
    if (!root) throw std::logic_error("test row is not a property list");
    return jobDescriptionFrom(*root);
}

struct UnitRow {
    const char* name;
    const char* job;   // the body of the job's dictionary
    const char* unit;  // after the launchctl line
};

// Rows print as their names in test lists.
void PrintTo(const UnitRow& row, std::ostream* out) {
    *out << row.name;
}

class AJobDescription : public testing::TestWithParam<UnitRow> {};

TEST_P(AJobDescription, BecomesThisUnit) {
    EXPECT_EQ(unitText(jobFrom(GetParam().job)),
              std::string(kWrittenByLaunchctl) + GetParam().unit);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, AJobDescription,
    testing::Values(UnitRow{"TheDaemonsOwn",
                            R"(<key>Label</key><string>com.olvara.Korad</string>
                   <key>KeepAlive</key><true/>
                   <key>RunAtLoad</key><true/>
                   <key>ThrottleInterval</key><integer>0</integer>
                   <key>StandardOutPath</key><string>/Library/Logs/korad.out.log</string>
                   <key>StandardErrorPath</key><string>/Library/Logs/korad.out.log</string>
                   <key>MachServices</key><dict><key>com.olvara.Korad</key><true/></dict>
                   <key>ProgramArguments</key>
                   <array><string>/Library/PrivilegedHelperTools/com.olvara.Korad</string></array>)",
                            "[Unit]\n"
                            "Description=com.olvara.Korad\n"
                            "StartLimitIntervalSec=0\n"
                            "\n"
                            "[Service]\n"
                            "Type=dbus\n"
                            "BusName=com.olvara.Korad\n"
                            "ExecStart=/Library/PrivilegedHelperTools/com.olvara.Korad\n"
                            "Restart=always\n"
                            "RestartSec=0\n"
                            "StandardOutput=append:/Library/Logs/korad.out.log\n"
                            "StandardError=append:/Library/Logs/korad.out.log\n"
                            "\n"
                            "[Install]\n"
                            "WantedBy=multi-user.target\n"},
                    UnitRow{"OnlyTheRequiredKeysAndFalseFlags",
                            R"(<key>Label</key><string>org.example.tick</string>
                   <key>ProgramArguments</key><array><string>/usr/bin/tick</string></array>
                   <key>KeepAlive</key><false/>
                   <key>RunAtLoad</key><false/>)",
                            "[Unit]\n"
                            "Description=org.example.tick\n"
                            "\n"
                            "[Service]\n"
                            "ExecStart=/usr/bin/tick\n"
                            "\n"
                            "[Install]\n"
                            "WantedBy=multi-user.target\n"},
                    UnitRow{"ArgumentsPathsAndSeveralNames",
                            R"(<key>Label</key><string>org.example.Two_names-1</string>
                   <key>ProgramArguments</key>
                   <array><string>/opt/My Tool/run</string><string>--rate=50%</string>
                          <string>$HOME</string></array>
                   <key>ThrottleInterval</key><integer>2147483647</integer>
                   <key>StandardErrorPath</key><string>/var/log/50% of it.log</string>
                   <key>MachServices</key>
                   <dict><key>org.example.First</key><dict><key>ResetAtClose</key><true/></dict>
                         <key>org.example.Second</key><true/></dict>
                   <key>UserName</key><string>nobody</string>)",
                            "[Unit]\n"
                            "Description=org.example.Two_names-1\n"
                            "\n"
                            "[Service]\n"
                            "Type=dbus\n"
                            "BusName=org.example.First\n"
                            "ExecStart=\"/opt/My Tool/run\" --rate=50%% $$HOME\n"
                            "RestartSec=2147483647\n"
                            "StandardError=append:/var/log/50%% of it.log\n"
                            "\n"
                            "[Install]\n"
                            "WantedBy=multi-user.target\n"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(AJobDescription, ListsEveryNameInOrderAndTheKeysItIgnores) {
    const JobDescription job = jobFrom(
        R"(<key>Label</key><string>a.b</string>
           <key>Program</key><string>/bin/a</string>
           <key>ProgramArguments</key><array><string>/bin/a</string></array>
           <key>MachServices</key><dict><key>z.Last</key><true/><key>a.First</key><true/></dict>
           <key>UserName</key><string>nobody</string>)");
    EXPECT_EQ(job.machServices, (std::vector<std::string>{"z.Last", "a.First"}));
    EXPECT_EQ(job.ignoredKeys, (std::vector<std::string>{"Program", "UserName"}));
}

struct ArgumentRow {
    const char* argument;
    const char* written;
};

void PrintTo(const ArgumentRow& row, std::ostream* out) {
    *out << testing::PrintToString(row.argument);
}

class AnExecStartArgument : public testing::TestWithParam<ArgumentRow> {};

TEST_P(AnExecStartArgument, IsWrittenSoThatSystemdReadsItBackUnchanged) {
    EXPECT_EQ(execArgument(GetParam().argument), GetParam().written);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, AnExecStartArgument,
    testing::Values(ArgumentRow{"--plain", "--plain"}, ArgumentRow{"", "\"\""},
                    ArgumentRow{"two words", "\"two words\""}, ArgumentRow{"100%", "100%%"},
                    ArgumentRow{"${PATH}", "$${PATH}"},
                    ArgumentRow{"say \"hi\"", "\"say \\\"hi\\\"\""},
                    ArgumentRow{"it's", "\"it's\""}, ArgumentRow{"C:\\dir", "\"C:\\\\dir\""},
                    ArgumentRow{";", "\";\""}, ArgumentRow{"a;b", "a;b"},
                    ArgumentRow{"tab\there\nline\x01", "\"tab\\there\\nline\\x01\""},
                    ArgumentRow{"åäö", "åäö"}));

struct LabelRow {
    std::string label;
    bool safe;
};

void PrintTo(const LabelRow& row, std::ostream* out) {
    *out << testing::PrintToString(row.label);
}

class ALabel : public testing::TestWithParam<LabelRow> {};

TEST_P(ALabel, IsASafeUnitNameOrNot) {
    EXPECT_EQ(isSafeLabel(GetParam().label), GetParam().safe) << GetParam().label;
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ALabel,
    testing::Values(LabelRow{"com.olvara.Korad", true}, LabelRow{"9lives_x-y", true},
                    LabelRow{std::string(247, 'a'), true}, LabelRow{std::string(248, 'a'), false},
                    LabelRow{"", false}, LabelRow{"a/b", false}, LabelRow{"../etc", false},
                    LabelRow{".hidden", false}, LabelRow{"-now", false}, LabelRow{"a b", false},
                    LabelRow{"a\nb", false}, LabelRow{"tmpl@x", false}, LabelRow{"a%i", false},
                    LabelRow{"å", false}));

}  // namespace
}  // namespace kora
