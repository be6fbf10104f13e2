#include "controller/kora_controller.h"

#include <glib.h>
#include <gtest/gtest.h>

#include "platform/logging.h"
#include "services/stored_date.h"
#include "support/temp_dir.h"

namespace kora {
namespace {

using namespace std::chrono_literals;

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
    std::unique_ptr<KoraController> start(std::chrono::milliseconds tick = 1h) const {
        return std::make_unique<KoraController>(KoraControllerSettings{
            file(), temp.path() / "Preferences",
            std::make_shared<LiveWorkspace>(temp.path() / "Applications"), tick});
    }
    void writeLastCheck(const std::string& text) const {
        PlistDictionary root;
        root.set("LastKoraCheckDate", text);
        writePropertyList(root, file());
    }

    TempDir temp;
    std::vector<std::string> lines;
};

TEST_F(AController, RegistersWithPresentAndAbsentStringsAndAlwaysAnswersTrue) {
    auto controller = start();
    EXPECT_TRUE(controller->registerClientWith("com.a", "I", std::nullopt, "1.0", "/A.app", ""));
    EXPECT_TRUE(controller->registerClientWith(std::nullopt, "I", "P", "1", "/B.app", "B"));
    EXPECT_TRUE(controller->updateClient("com.b", std::nullopt, "2.0"));
    EXPECT_EQ(controller->registerApplicationWithIdentifier("com.c", "1", "2", "3", "4", "5", "6",
                                                            "7", "/C.app"),
              std::nullopt);

    const PlistDictionary section = *readPropertyListDictionary(file())->dictionary("KoraDB");
    ASSERT_EQ(section.size(), 2u);
    const PlistDictionary* a = section.dictionary("com.a");
    EXPECT_EQ(a->string("brand"), "");
    EXPECT_EQ(a->find("productID"), nullptr);
    EXPECT_EQ(section.dictionary("com.b")->find("bundlePath"), nullptr);
    EXPECT_EQ(section.dictionary("com.b")->string("brand"), "Unknown");

    EXPECT_TRUE(controller->uninstall("com.a"));
    EXPECT_TRUE(controller->uninstall(std::nullopt));
    EXPECT_EQ(readPropertyListDictionary(file())->dictionary("KoraDB")->size(), 1u);
}

TEST_F(AController, EchoesItsArgumentAndLogsIt) {
    auto controller = start();
    EXPECT_EQ(controller->echo("abc"), "abc");
    EXPECT_EQ(controller->echo(std::nullopt), std::nullopt);
    EXPECT_EQ(lines, (std::vector<std::string>{"Echoing: abc", "Echoing: (null)"}));
}

TEST_F(AController, LogsEveryRoamingChangeEvenWhenUnchanged) {
    auto controller = start();
    EXPECT_TRUE(controller->setRoaming(true));
    EXPECT_TRUE(controller->setRoaming(true));
    EXPECT_TRUE(controller->isModemRoaming());
    EXPECT_TRUE(controller->setRoaming(false));
    EXPECT_EQ(lines, (std::vector<std::string>{"Setting KORA to roaming state",
                                               "Setting KORA to roaming state",
                                               "Setting KORA to normal state"}));
}

TEST_F(AController, ReadsTheLastCheckDateAndForgetsItOnForceCheck) {
    const Date checked = dateFromUnixSeconds(1'700'000'000);
    writeLastCheck(storedDateText(checked));
    auto controller = start();
    EXPECT_EQ(controller->dateSinceLastCheck(), checked);
    EXPECT_EQ(controller->lastUpdate(), kEpoch);

    controller->checkSequence();
    EXPECT_NE(controller->lastUpdate(), kEpoch);
    controller->forceCheck();
    EXPECT_EQ(controller->dateSinceLastCheck(), kEpoch);
    EXPECT_EQ(controller->lastUpdate(), kEpoch);
}

TEST_F(AController, TreatsAnUnreadableLastCheckDateAsNoCheck) {
    writeLastCheck("yesterday");
    EXPECT_EQ(start()->dateSinceLastCheck(), kEpoch);
}

TEST_F(AController, BecomesTheDelegateOfRestoredUpdates) {
    PlistDictionary updates;
    updates.set("com.a", PlistDictionary{});
    PlistDictionary root;
    root.set("UpdateDB", updates);
    writePropertyList(root, file());
    auto controller = start();
    EXPECT_EQ(controller->db().getUpdateInfoForIdentifier("com.a")->delegate(), controller.get());
}

TEST_F(AController, RefreshesTheRegistryAtTheFirstTickOnTheMainLoop) {
    auto controller = start(20ms);
    controller->registerClientWith("com.gone", "I", "P", "1", "/nowhere/Gone.app", "B");
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    while (controller->lastUpdate() == kEpoch && std::chrono::steady_clock::now() < deadline) {
        g_main_context_iteration(nullptr, TRUE);
    }
    EXPECT_NE(controller->lastUpdate(), kEpoch);
    EXPECT_TRUE(readPropertyListDictionary(file())->dictionary("KoraDB")->empty());
}

using TickCase = std::pair<const char*, std::chrono::milliseconds>;  // nullptr: not set
class TheTickInterval : public testing::TestWithParam<TickCase> {};

TEST_P(TheTickInterval, ComesFromTheEnvironmentOnlyWhenItIsAPositiveWholeNumber) {
    if (GetParam().first) {
        setenv("KORAD_TICK_SECONDS", GetParam().first, 1);
    } else {
        unsetenv("KORAD_TICK_SECONDS");
    }
    EXPECT_EQ(tickIntervalFromEnvironment(), GetParam().second);
    unsetenv("KORAD_TICK_SECONDS");
}

INSTANTIATE_TEST_SUITE_P(Rows, TheTickInterval,
                         testing::Values(TickCase(nullptr, 30s), TickCase("2", 2s),
                                         TickCase("0", 30s), TickCase("-5", 30s),
                                         TickCase("5s", 30s), TickCase("", 30s),
                                         TickCase("99999999999", 30s)));

}  // namespace
}  // namespace kora
