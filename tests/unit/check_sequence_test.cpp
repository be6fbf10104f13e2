#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "controller/kora_controller.h"
#include "controller/update_step.h"
#include "dates/stored_date.h"
#include "platform/logging.h"
#include "support/controller_platform.h"
#include "support/recording_update_service.h"
#include "support/temp_dir.h"

namespace kora {
namespace {

using namespace std::chrono_literals;
using testing_support::RecordingUpdateService;
using Lines = std::vector<std::string>;

// Ticks of a controller on a fake clock, a fake network and a recording service.
class ACheckSequence : public testing::Test {
  protected:
    ACheckSequence() {
        setLogSink([this](LogChannel, int, const std::string& text) { lines.push_back(text); });
    }
    ~ACheckSequence() override { setLogSink({}); }

    std::filesystem::path file() const { return temp.path() / "com.olvara.korad.plist"; }
    KoraController& start() {
        controller = std::make_unique<KoraController>(platform.settings(file()), service,
                                                      platform.installer());
        return *controller;
    }
    // A registry file holding these root keys before the controller starts.
    void writeRoot(const std::vector<PlistDictionary::Entry>& entries) const {
        PlistDictionary root;
        for (const auto& [key, value] : entries) root.set(key, value);
        writePropertyList(root, file());
    }
    std::optional<PlistDictionary> root() const { return readPropertyListDictionary(file()); }
    std::optional<std::string> recordedCheck() const {
        const auto found = root();
        return found ? found->string("LastKoraCheckDate") : std::nullopt;
    }
    // Installed in a bundle that exists, so the hourly refresh keeps it.
    void registerApplication(const std::string& identifier) {
        const auto bundle = temp.path() / (identifier + ".app");
        std::filesystem::create_directories(bundle);
        controller->registerClientWith(identifier, "I-" + identifier, "P-" + identifier, "1.0",
                                       bundle.string(), "B");
    }
    std::shared_ptr<KoraUpdate> storeUpdate(const std::string& identifier, bool downloading,
                                            bool downloaded, bool installing, bool installed) {
        auto update = std::make_shared<KoraUpdate>();
        update->setIdentifier(identifier);
        update->setUpdateId("U-" + identifier);
        update->setHasStartedDownload(downloading);
        update->setDownloadComplete(downloaded);
        update->setHasStartedInstallation(installing);
        update->setInstallationComplete(installed);
        update->setDelegate(controller.get());
        controller->db().updateInfoForUpdateWithIdentifier(identifier, update);
        return update;
    }
    void advance(std::chrono::seconds by) { platform.clock->time += by; }

    TempDir temp;
    Lines lines;
    test::ControllerPlatform platform{temp.path()};
    RecordingUpdateService service;
    std::unique_ptr<KoraController> controller;
};

// Each row starts with one registered application and a last check `age`
// seconds old (none: never checked), then ticks once.
struct CheckCondition {
    std::optional<int> age;
    bool roaming;
    bool networkUp;
    bool checks;
    bool asksNetwork;
};

TEST_F(ACheckSequence, ChecksOnlyPastADayWhenNotRoamingAndTheNetworkIsUp) {
    const CheckCondition rows[] = {
        {86400, false, true, false, false}, {86401, false, true, true, true},
        {std::nullopt, false, true, true, true}, {86401, true, true, false, false},
        {86401, false, false, false, true},
    };
    for (const CheckCondition& row : rows) {
        SCOPED_TRACE(testing::Message() << row.age.value_or(-1) << " " << row.roaming << " "
                                        << row.networkUp);
        const std::string before = storedDateText(platform.clock->time - row.age.value_or(0) * 1s);
        writeRoot(row.age ? std::vector<PlistDictionary::Entry>{{"LastKoraCheckDate", before}}
                          : std::vector<PlistDictionary::Entry>{});
        service = {};
        platform.network.hosts.clear();
        platform.setNetworkUp(row.networkUp);
        start().setRoaming(row.roaming);
        registerApplication("com.a");

        controller->checkSequence();

        EXPECT_EQ(service.calls, row.checks ? Lines{"Check"} : Lines{});
        EXPECT_EQ(platform.network.hosts.size(), row.asksNetwork ? 1u : 0u);
        EXPECT_EQ(controller->lastUpdate(), platform.clock->time) << "set whether or not it checked";
        EXPECT_EQ(recordedCheck(), row.checks ? storedDateText(platform.clock->time)
                                              : row.age ? std::optional(before) : std::nullopt);
        controller.reset();
    }
}

TEST_F(ACheckSequence, RefreshesTheRegistryOnlyWhenMoreThanAnHourHasPassed) {
    start();
    const Date first = platform.clock->time;
    controller->checkSequence();
    EXPECT_EQ(controller->lastUpdate(), first);
    advance(3600s);
    controller->checkSequence();
    EXPECT_EQ(controller->lastUpdate(), first);
    advance(1s);
    controller->checkSequence();
    EXPECT_EQ(controller->lastUpdate(), platform.clock->time);
    EXPECT_EQ(service.calls, Lines{}) << "the day since the first check has not passed";
}

TEST_F(ACheckSequence, AsksAboutEveryApplicationAndTakesAnOfferOnlyWithoutAnUpdateInProgress) {
    start();
    registerApplication("com.a");
    registerApplication("com.b");
    const auto busy = storeUpdate("com.a", true, false, false, false);
    KORA_cUpdate offer;
    offer.setUpdateID("U-2");
    offer.setLocation("http://127.0.0.1:9/Upd.zip");
    offer.setVersionTo("2.0");
    offer.setSize_("42");
    offer.setHash("ABC");
    offer.setInstallTime("ignored");
    service.checkReplies = {RecordingUpdateService::offering(offer),
                            RecordingUpdateService::offering(offer)};
    lines.clear();

    controller->checkSequence();

    ASSERT_EQ(service.calls, (Lines{"Check", "Check"}));
    EXPECT_EQ(platform.facts->asked, 2) << "the machine is asked afresh for every request";
    auto expected = test::expectedRequest<KORA_Check>("P-com.b", "1.0");
    expected.setInstallationID("I-com.b");
    EXPECT_EQ(std::get<KORA_Check>(service.requests.at(1)), expected);
    EXPECT_EQ(lines, (Lines{"Checking for updates for: com.a", "Checking for updates for: com.b",
                            "Found a update, will start download"}));

    EXPECT_EQ(controller->db().getUpdateInfoForIdentifier("com.a"), busy);
    const auto taken = controller->db().getUpdateInfoForIdentifier("com.b");
    ASSERT_NE(taken, nullptr);
    EXPECT_EQ(std::tuple(taken->identifier(), taken->updateId(), taken->downloadLocation(),
                         taken->versionTo(), taken->size(), taken->hash()),
              std::tuple("com.b", "U-2", "http://127.0.0.1:9/Upd.zip", "2.0", "42", "ABC"));
    EXPECT_EQ(taken->delegate(), controller.get());
    EXPECT_EQ(taken->downloadFolder(), temp.path() / "downloads");
    EXPECT_NE(root()->dictionary("UpdateDB")->dictionary("com.b"), nullptr);
}

// Whatever each reply says, the check is recorded; only a whole offer is stored.
TEST_F(ACheckSequence, StoresOnlyAnOfferThatCanBeDownloaded) {
    KORA_cUpdate valid;
    valid.setUpdateID("U-1");
    valid.setLocation("http://127.0.0.1:9/Upd.zip");
    auto zero = valid;
    zero.setUpdateID("00000000-0000-0000-0000-000000000000");
    auto noId = valid;
    noId.setUpdateID(std::nullopt);
    auto noLocation = valid;
    noLocation.setLocation(std::nullopt);
    ServiceReply<KORA_CheckResponse> fault;
    fault.hasBodyParts = true;
    fault.fault.emplace();
    ServiceReply<KORA_CheckResponse> noResult;
    noResult.hasBodyParts = true;
    noResult.response.emplace();
    const std::string noValidId = "The update from KORA did not have a valid ID";
    const struct {
        ServiceReply<KORA_CheckResponse> reply;
        std::optional<std::string> line;
        bool stored;
    } rows[] = {
        {{}, std::nullopt, false},  // no body: passed over silently
        {fault, "Error checking for updates", false},
        {RecordingUpdateService::offering(zero), noValidId, false},
        {noResult, noValidId, false},
        {RecordingUpdateService::offering(noId), noValidId, false},
        {RecordingUpdateService::offering(noLocation),
         "The update from KORA did not have a download location", false},
        {RecordingUpdateService::offering(valid), "Found a update, will start download", true},
    };
    start();
    registerApplication("com.a");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line.value_or("no body"));
        controller->forceCheck();
        advance(1s);
        service.checkReplies = {row.reply};
        lines.clear();
        controller->checkSequence();
        Lines expected{"Checking for updates for: com.a"};
        if (row.line) expected.push_back(*row.line);
        EXPECT_EQ(lines, expected);
        EXPECT_EQ(controller->db().getUpdateInfoForIdentifier("com.a") != nullptr, row.stored);
        EXPECT_EQ(recordedCheck(), storedDateText(platform.clock->time));
    }
}

TEST_F(ACheckSequence, RecordsACheckWithoutApplicationsKeepingTheFilesOtherKeys) {
    writeRoot({{"Other", "kept"}});
    start().checkSequence();
    EXPECT_EQ(recordedCheck(), storedDateText(platform.clock->time));
    EXPECT_EQ(root()->string("Other"), "kept");
    EXPECT_EQ(controller->dateSinceLastCheck(), platform.clock->time);

    // Broken while the request waits: the check date is written alone.
    registerApplication("com.a");
    controller->forceCheck();
    service.onCall = [&](const std::string&) { std::ofstream(file()) << "<plist><dict>"; };
    controller->checkSequence();
    const auto written = root();
    ASSERT_TRUE(written);
    EXPECT_EQ(written->size(), 1u);
    EXPECT_EQ(written->string("LastKoraCheckDate"), storedDateText(platform.clock->time));
}

TEST_F(ACheckSequence, DoesNotRecordACheckCutShortByShutdown) {
    start();
    registerApplication("com.a");
    // During the last request: every request has gone out, yet the check is cut short.
    service.onCall = [&](const std::string&) { controller->beginShutdown(); };
    controller->checkSequence();
    EXPECT_EQ(service.calls, (Lines{"Check", "cancelAll"}));
    EXPECT_EQ(recordedCheck(), std::nullopt);
    EXPECT_EQ(controller->dateSinceLastCheck(), kEpoch);
}

// What the steps do to the updates, a tick at a time. A completed update stays
// out of the file, so its store shows in the running download it writes
// along, which was changed in memory only.
TEST_F(ACheckSequence, StoresCompletedUpdatesInstallsOfflineAndStopsDownloadsWhileRoaming) {
    start().checkSequence();
    storeUpdate("com.a", true, true, true, true);
    const auto running = storeUpdate("com.b", true, false, false, false);
    const auto downloaded = storeUpdate("com.c", true, true, false, false);
    downloaded->postponeHours(1, platform.clock->time);
    platform.setNetworkUp(false);
    for (const char* name : {"first", "second"}) {
        running->setName(name);
        controller->checkSequence();
        EXPECT_EQ(root()->dictionary("UpdateDB")->dictionary("com.b")->string("name"), name);
        EXPECT_EQ(root()->dictionary("UpdateDB")->dictionary("com.a"), nullptr);
    }
    EXPECT_EQ(service.calls, Lines{}) << "postponed";
    advance(3601s);
    controller->checkSequence();
    // There is no archive: the installation ends at once with its error notice.
    EXPECT_EQ(service.calls, Lines{"InstallError"});

    controller->setRoaming(true);
    platform.network.hosts.clear();
    controller->checkSequence();
    EXPECT_EQ(running->waitUntilDate(), platform.clock->time + 1h);
    EXPECT_EQ(root()->dictionary("UpdateDB")->dictionary("com.b")->string("waitUntilDate"),
              storedDateText(platform.clock->time + 1h));
    EXPECT_TRUE(platform.network.hosts.empty()) << "nothing starts while roaming";
}

// One row per situation of the table that steers updates in progress.
struct StepRow {
    bool roaming, downloading, downloaded, installing, installed;
    bool networkUp;
    UpdateStep expected;
    bool asksNetwork;
};

TEST(NextStep, FollowsTheFlagsRoamingFirstAndAsksTheNetworkOnlyBeforeADownload) {
    using enum UpdateStep;
    const StepRow rows[] = {
        {true, true, false, false, false, true, StopForRoaming, false},
        {true, false, false, false, false, true, Nothing, false},
        {true, true, true, true, true, true, Nothing, false},
        {false, true, true, true, true, true, StoreCompleted, false},
        {false, true, true, true, false, true, Nothing, false},
        {false, false, false, false, false, true, StartDownload, true},
        {false, false, false, false, false, false, Nothing, true},
        {false, true, false, false, false, true, Nothing, false},
        {false, true, true, false, false, false, StartInstallation, false},
        {false, false, true, false, true, true, Nothing, false},
    };
    for (const StepRow& row : rows) {
        KoraUpdate update;
        update.setHasStartedDownload(row.downloading);
        update.setDownloadComplete(row.downloaded);
        update.setHasStartedInstallation(row.installing);
        update.setInstallationComplete(row.installed);
        int asked = 0;
        const auto networkUp = [&] {
            ++asked;
            return row.networkUp;
        };
        EXPECT_EQ(nextStep(update, row.roaming, networkUp, now()), row.expected)
            << &row - rows;
        EXPECT_EQ(asked, row.asksNetwork ? 1 : 0) << &row - rows;
    }
}

TEST(NextStep, RetriesAFailedDownloadOnlyAfterTheDayHasPassed) {
    const Date failed = dateFromUnixSeconds(1'700'000'000);
    KoraUpdate update;
    update.postponeHours(24, failed);
    const auto up = [] { return true; };
    EXPECT_EQ(nextStep(update, false, up, failed + 24h), UpdateStep::Nothing);
    EXPECT_EQ(nextStep(update, false, up, failed + 24h + 1s), UpdateStep::StartDownload);
    update.setDownloadComplete(true);
    EXPECT_EQ(nextStep(update, false, up, failed + 24h), UpdateStep::Nothing);
    EXPECT_EQ(nextStep(update, false, up, failed + 24h + 1s), UpdateStep::StartInstallation);
}

}  // namespace
}  // namespace kora
