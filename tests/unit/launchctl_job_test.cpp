// The launchctl adapter's conversion of a job description into a systemd unit text.

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

void PrintTo(const UnitRow& row, std::ostream* out) {
    *out << row.name;
}

class AJobDescription : public testing::TestWithParam<UnitRow> {};

TEST_P(AJobDescription, BecomesThisUnit) {
    EXPECT_EQ(unitText(jobFrom(GetParam().job)),
              std::string(kWrittenByLaunchctl) + GetParam().unit);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Rows, AJobDescription, testing::Values(
    UnitRow{"TheDaemonsOwn",
            R"(<key>Label</key><string>com.olvara.Korad</string><key>KeepAlive</key><true/>
               <key>RunAtLoad</key><true/><key>ThrottleInterval</key><integer>0</integer>
               <key>StandardOutPath</key><string>/Library/Logs/korad.out.log</string>
               <key>StandardErrorPath</key><string>/Library/Logs/korad.out.log</string>
               <key>MachServices</key><dict><key>com.olvara.Korad</key><true/></dict>
               <key>ProgramArguments</key><array><string>/Library/PrivilegedHelperTools/com.olvara.Korad</string></array>)",
            "[Unit]\nDescription=com.olvara.Korad\nStartLimitIntervalSec=0\n\n"
            "[Service]\nType=dbus\nBusName=com.olvara.Korad\nExecStart=/Library/PrivilegedHelperTools/com.olvara.Korad\n"
            "Restart=always\nRestartSec=0\nStandardOutput=append:/Library/Logs/korad.out.log\n"
            "StandardError=append:/Library/Logs/korad.out.log\n\n[Install]\nWantedBy=multi-user.target\n"},
    UnitRow{"OnlyTheRequiredKeysAndFalseFlags",
            R"(<key>Label</key><string>org.example.tick</string><key>KeepAlive</key><false/><key>RunAtLoad</key><false/>
               <key>ProgramArguments</key><array><string>/usr/bin/tick</string></array>)",
            "[Unit]\nDescription=org.example.tick\n\n[Service]\nExecStart=/usr/bin/tick\n\n"
            "[Install]\nWantedBy=multi-user.target\n"},
    UnitRow{"ArgumentsPathsAndSeveralNames",
            R"(<key>Label</key><string>org.example.Two_names-1</string><key>UserName</key><string>nobody</string>
               <key>ProgramArguments</key><array><string>/opt/My Tool/run</string><string>--rate=50%</string><string>$HOME</string></array>
               <key>ThrottleInterval</key><integer>2147483647</integer><key>StandardErrorPath</key><string>/var/log/50% of it.log</string>
               <key>MachServices</key><dict><key>org.example.First</key><dict><key>ResetAtClose</key><true/></dict>
               <key>org.example.Second</key><true/></dict>)",
            "[Unit]\nDescription=org.example.Two_names-1\n\n[Service]\nType=dbus\nBusName=org.example.First\n"
            "ExecStart=\"/opt/My Tool/run\" --rate=50%% $$HOME\nRestartSec=2147483647\n"
            "StandardError=append:/var/log/50%% of it.log\n\n[Install]\nWantedBy=multi-user.target\n"}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

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

TEST(AnExecStartArgument, IsWrittenSoThatSystemdReadsItBackUnchanged) {
    const std::pair<const char*, const char*> rows[] = {
        {"--plain", "--plain"}, {"", "\"\""}, {"two words", "\"two words\""}, {"100%", "100%%"},
        {"${PATH}", "$${PATH}"}, {"say \"hi\"", "\"say \\\"hi\\\"\""}, {"it's", "\"it's\""},
        {"C:\\dir", "\"C:\\\\dir\""}, {";", "\";\""}, {"a;b", "a;b"},
        {"tab\there\nline\x01", "\"tab\\there\\nline\\x01\""}, {"åäö", "åäö"}};
    for (const auto& [argument, written] : rows) EXPECT_EQ(execArgument(argument), written);
}

TEST(ALabel, IsASafeUnitNameOrNot) {
    const std::pair<std::string, bool> rows[] = {
        {"com.olvara.Korad", true}, {"9lives_x-y", true}, {std::string(247, 'a'), true},
        {std::string(248, 'a'), false}, {"", false}, {"a/b", false}, {"../etc", false},
        {".hidden", false}, {"-now", false}, {"a b", false}, {"a\nb", false},
        {"tmpl@x", false}, {"a%i", false}, {"å", false}};
    for (const auto& [label, safe] : rows) EXPECT_EQ(isSafeLabel(label), safe) << label;
}

}  // namespace
}  // namespace kora
