#include "controller/kora_controller.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <tuple>

#include "platform/input_limits.h"
#include "platform/logging.h"
#include "dates/stored_date.h"
#include "support/temp_dir.h"

namespace kora {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

class AController : public testing::Test {
  protected:
    AController() {
        setLogSink([this](LogChannel, int, const std::string& text) { lines.push_back(text); });
        // Notices go to a closed loopback port: refused at once, never the network.
        setenv("KORAD_SERVICE_ADDRESS", "http://127.0.0.1:9/kora2.asmx", 1);
    }
    ~AController() override {
        unsetenv("KORAD_SERVICE_ADDRESS");
        setLogSink({});
    }

    std::filesystem::path file() const { return temp.path() / "com.olvara.korad.plist"; }
    std::unique_ptr<KoraController> start(std::chrono::milliseconds tick = 1h,
                                          std::size_t registryMaxBytes = kPlistMaxBytes) const {
        return std::make_unique<KoraController>(KoraControllerSettings{
            file(), temp.path() / "Preferences",
            std::make_shared<LiveWorkspace>(temp.path() / "Applications"), tick,
            registryMaxBytes});
    }
    // A registry file holding only these root keys.
    void writeRegistry(const std::vector<PlistDictionary::Entry>& entries) const {
        PlistDictionary root;
        for (const auto& [key, value] : entries) root.set(key, value);
        writePropertyList(root, file());
    }
    PlistDictionary applications() const {
        return *readPropertyListDictionary(file())->dictionary("KoraDB");
    }

    TempDir temp;
    Lines lines;
};

TEST_F(AController, RegistersWithPresentAndAbsentStringsAndAlwaysAnswersTrue) {
    auto controller = start();
    EXPECT_TRUE(controller->registerClientWith("com.a", "I", std::nullopt, "1.0", "/A.app", ""));
    EXPECT_TRUE(controller->registerClientWith(std::nullopt, "I", "P", "1", "/B.app", "B"));
    EXPECT_TRUE(controller->updateClient("com.b", std::nullopt, "2.0"));
    EXPECT_FALSE(controller->registerApplicationWithIdentifier("com.c", "1", "2", "3", "4", "5",
                                                               "6", "7", "/C.app"));

    const PlistDictionary section = applications();
    ASSERT_EQ(section.size(), 2u);
    EXPECT_EQ(section.dictionary("com.a")->string("brand"), "");
    EXPECT_EQ(section.dictionary("com.a")->find("productID"), nullptr);
    EXPECT_EQ(section.dictionary("com.b")->find("bundlePath"), nullptr);
    EXPECT_EQ(section.dictionary("com.b")->string("brand"), "Unknown");

    EXPECT_TRUE(controller->uninstall("com.a"));
    EXPECT_TRUE(controller->uninstall(std::nullopt));
    EXPECT_EQ(applications().size(), 1u);
}

// The registry cap is lowered to what one registration takes, so the test
// need not write 16 MiB.
TEST_F(AController, AnswersFalseAndUndoesAChangeTheRegistryCannotHold) {
    start()->registerClientWith("com.a", "I", "P", "1.0", "/A.app", "B");
    auto controller = start(1h, std::filesystem::file_size(file()));
    lines.clear();

    const auto application = controller->db().registeredApplicationForIdentifier("com.a");
    EXPECT_FALSE(controller->updateClient("com.a", "/A much longer path.app", "1.1"));
    EXPECT_FALSE(controller->registerClientWith("com.a", "I", "P", "1.0", "/A.app", "Longer"));
    EXPECT_EQ(controller->db().registeredApplicationForIdentifier("com.a"), application);
    EXPECT_EQ(std::tuple(application->bundlePath(), application->lastKnownVersion(),
                         application->brand()),
              std::tuple("/A.app", "1.0", "B"));
    EXPECT_FALSE(controller->registerClientWith("com.b", "I", "P", "1.0", "/B.app", "B"));
    EXPECT_FALSE(controller->updateClient("com.c", "/C.app", "1.0"));
    EXPECT_TRUE(controller->updateClient("com.a", "/B.app", "2.0"));  // same size: fits
    EXPECT_EQ(application->bundlePath(), "/B.app");
    EXPECT_EQ(controller->db().registeredApplications().size(), 1u);
    EXPECT_EQ(applications().size(), 1u);
    EXPECT_EQ(lines.size(), 4u) << "one line per refused change";
}

TEST_F(AController, LogsEveryEchoAndEveryRoamingChangeEvenWhenUnchanged) {
    auto controller = start();
    EXPECT_EQ(controller->echo("abc"), "abc");
    EXPECT_EQ(controller->echo(std::nullopt), std::nullopt);
    EXPECT_TRUE(controller->setRoaming(true));
    EXPECT_TRUE(controller->setRoaming(true));
    EXPECT_TRUE(controller->setRoaming(false));
    EXPECT_EQ(lines, (Lines{"Echoing: abc", "Echoing: (null)", "Setting KORA to roaming state",
                            "Setting KORA to roaming state", "Setting KORA to normal state"}));
}

TEST_F(AController, EchoesAnyTextInOneShortLogLine) {
    auto controller = start();
    const std::string forged = "x\nEchoing: forged\x1b[2J";
    const std::string longest(kMaxEchoBytes, 'a');
    EXPECT_EQ(controller->echo(forged), forged);
    EXPECT_TRUE(controller->echo(longest) == longest);
    EXPECT_EQ(lines, (Lines{"Echoing: x\\nEchoing: forged\\x1b[2J",
                            "Echoing: " + std::string(1024, 'a') + "... (65536 bytes)"}));
}

TEST_F(AController, RestoresItsStateFromTheFileAndForgetsTheLastCheckOnForceCheck) {
    writeRegistry({{"LastKoraCheckDate", "yesterday"}});  // unreadable: no check yet
    EXPECT_EQ(start()->dateSinceLastCheck(), kEpoch);
    const Date checked = dateFromUnixSeconds(1'700'000'000);
    PlistDictionary updates;
    updates.set("com.a", PlistDictionary{});
    writeRegistry({{"LastKoraCheckDate", storedDateText(checked)}, {"UpdateDB", updates}});
    auto controller = start();
    EXPECT_EQ(controller->db().getUpdateInfoForIdentifier("com.a")->delegate(), controller.get());
    EXPECT_EQ(controller->dateSinceLastCheck(), checked);
    EXPECT_EQ(controller->lastUpdate(), kEpoch);

    controller->checkSequence();
    EXPECT_NE(controller->lastUpdate(), kEpoch);
    controller->forceCheck();
    EXPECT_EQ(controller->dateSinceLastCheck(), kEpoch);
    EXPECT_EQ(controller->lastUpdate(), kEpoch);
}

TEST_F(AController, RefreshesTheRegistryAtTheFirstTickOnTheMainLoop) {
    auto controller = start(20ms);
    controller->registerClientWith("com.gone", "I", "P", "1", "/nowhere/Gone.app", "B");
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    while (controller->lastUpdate() == kEpoch && std::chrono::steady_clock::now() < deadline)
        g_main_context_iteration(nullptr, TRUE);
    EXPECT_NE(controller->lastUpdate(), kEpoch);
    EXPECT_TRUE(applications().empty());
}

TEST(TheTickInterval, ComesFromTheEnvironmentOnlyWhenItIsAPositiveWholeNumber) {
    unsetenv("KORAD_TICK_SECONDS");
    EXPECT_EQ(tickIntervalFromEnvironment(), 30s);
    const std::pair<const char*, std::chrono::seconds> rows[] = {
        {"2", 2s}, {"0", 30s}, {"-5", 30s}, {"5s", 30s}, {"", 30s}, {"99999999999", 30s}};
    for (const auto& [text, expected] : rows) {
        setenv("KORAD_TICK_SECONDS", text, 1);
        EXPECT_EQ(tickIntervalFromEnvironment(), expected) << text;
    }
    unsetenv("KORAD_TICK_SECONDS");
}

}  // namespace
}  // namespace kora
