#include "controller/kora_controller.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <tuple>
#include <type_traits>
#include <variant>

#include "platform/input_limits.h"
#include "platform/logging.h"
#include "dates/stored_date.h"
#include "support/controller_platform.h"
#include "support/recording_update_service.h"
#include "support/temp_dir.h"

namespace kora {
namespace {

using namespace std::chrono_literals;
using testing_support::RecordingUpdateService;
using Lines = std::vector<std::string>;

class AController : public testing::Test {
  protected:
    AController() {
        setLogSink([this](LogChannel, int, const std::string& text) { lines.push_back(text); });
    }
    ~AController() override { setLogSink({}); }

    std::filesystem::path file() const { return temp.path() / "com.olvara.korad.plist"; }
    std::unique_ptr<KoraController> start(
        std::chrono::milliseconds tick = 1h, std::size_t registryMaxBytes = kPlistMaxBytes,
        std::shared_ptr<const Workspace> workspace = nullptr) {
        KoraControllerSettings settings = platform.settings(file());
        if (workspace) settings.workspace = std::move(workspace);
        settings.tickInterval = tick;
        settings.registryMaxBytes = registryMaxBytes;
        return std::make_unique<KoraController>(std::move(settings), service,
                                                platform.installer());
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
    test::ControllerPlatform platform{temp.path()};
    RecordingUpdateService service;  // outlives the controllers of a test
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
    EXPECT_TRUE(controller->uninstall("com.unknown"));  // notified without identifiers
    service.fail = true;
    EXPECT_TRUE(controller->uninstall(std::nullopt));
    EXPECT_EQ(applications().size(), 1u);
    EXPECT_EQ(service.calls, (Lines{"Uninstall", "Uninstall", "Uninstall"}));
    EXPECT_EQ(service.uninstallNotices.at(0).InstallationID(), "I");
    EXPECT_EQ(service.uninstallNotices.at(1), KORA_Uninstall());
    EXPECT_EQ(service.uninstallNotices.at(2), KORA_Uninstall());
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "Successfully notified KORA Server"), 2);
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

// An echo is logged in one short line whatever the text; a roaming change is
// logged even when nothing changes.
TEST_F(AController, LogsEveryEchoAndEveryRoamingChange) {
    auto controller = start();
    const std::string forged = "x\nEchoing: forged\x1b[2J";
    const std::string longest(kMaxEchoBytes, 'a');
    EXPECT_EQ(controller->echo(forged), forged);
    EXPECT_TRUE(controller->echo(longest) == longest);
    EXPECT_EQ(controller->echo(std::nullopt), std::nullopt);
    EXPECT_TRUE(controller->setRoaming(true));
    EXPECT_TRUE(controller->setRoaming(true));
    EXPECT_TRUE(controller->setRoaming(false));
    EXPECT_EQ(lines, (Lines{"Echoing: x\\nEchoing: forged\\x1b[2J",
                            "Echoing: " + std::string(1024, 'a') + "... (65536 bytes)",
                            "Echoing: (null)", "Setting KORA to roaming state",
                            "Setting KORA to roaming state", "Setting KORA to normal state"}));
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
    EXPECT_EQ(controller->db().getUpdateInfoForIdentifier("com.a")->downloadFolder(),
              temp.path() / "downloads");
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

// An application whose bundle has gone makes the registry ask the workspace,
// which fails here as a broken desktop database might.
class FailingWorkspace : public Workspace {
  public:
    std::optional<std::filesystem::path> absolutePathForAppBundleWithIdentifier(
        std::string_view) const override {
        throw std::runtime_error("workspace unavailable");
    }
};

TEST_F(AController, LogsAFailedTickAndTicksAgain) {
    auto controller = start(20ms, kPlistMaxBytes, std::make_shared<FailingWorkspace>());
    controller->registerClientWith("com.gone", "I", "P", "1", "/nowhere/Gone.app", "B");
    const std::string failure =
        "Check sequence failed, the next tick tries again: workspace unavailable";
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    while (std::count(lines.begin(), lines.end(), failure) < 2 &&
           std::chrono::steady_clock::now() < deadline)
        g_main_context_iteration(nullptr, TRUE);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), failure), 2);
    EXPECT_EQ(controller->lastUpdate(), kEpoch);
}

TEST_F(AController, StopsTickingAndCancelsTheServiceAtShutdown) {
    auto controller = start();
    controller->beginShutdown();
    EXPECT_TRUE(controller->shuttingDown());
    EXPECT_EQ(service.calls, Lines{"cancelAll"});
    controller->checkSequence();
    EXPECT_EQ(controller->lastUpdate(), kEpoch);
}

// What each outcome an update reports leaves in memory and on disk, and the
// notice it sends. The update of "com.a" (at 1.0) offers 2.0 and has been
// stored once before.
struct Outcome {
    const char* name;
    void (KoraController::*report)(const std::shared_ptr<KoraUpdate>&);
    const char* operation;
    bool downloadedBefore;
    bool downloadComplete;
    bool installationComplete;
    std::chrono::hours postponed;  // 0: the wait-until date stays the epoch
    bool storedInFile;             // completed updates are kept in memory only
    const char* applicationVersion;
};

const Outcome kOutcomes[] = {
    {"downloadErrorOn", &KoraController::downloadErrorOn, "DownloadError", false, false, false,
     24h, true, "1.0"},
    {"downloadDidFinishFor", &KoraController::downloadDidFinishFor, "DownloadComplete", false,
     true, false, 0h, true, "1.0"},
    {"installationErrorOn", &KoraController::installationErrorOn, "InstallError", true, true, true,
     0h, false, "1.0"},
    {"installationDidFinishFor", &KoraController::installationDidFinishFor, "InstallComplete",
     true, true, true, 0h, false, "2.0"},
};

// The fields every notice shares, and the one that tells when.
const KoraNoticeFields* noticeFields(const RecordingUpdateService::Request& request) {
    return std::visit(
        [](const auto& record) -> const KoraNoticeFields* {
            if constexpr (std::is_base_of_v<KoraNoticeFields, std::decay_t<decltype(record)>>) {
                return &record;
            } else {
                return nullptr;
            }
        },
        request);
}

KoraNoticeFields expectedNotice(const char* version, const std::string& startTime) {
    auto notice = test::expectedRequest<KoraNoticeFields>("P", version);
    notice.setInstallationID("I");
    notice.setUpdateID("U");
    notice.setStartTime(startTime);
    return notice;
}

TEST_F(AController, StoresEveryUpdateOutcomeBeforeItNotifiesTheService) {
    for (const Outcome& row : kOutcomes) {
        SCOPED_TRACE(row.name);
        std::filesystem::remove(file());
        service = {};
        lines.clear();
        auto controller = start();
        controller->registerClientWith("com.a", "I", "P", "1.0", "/A.app", "B");
        auto update = std::make_shared<KoraUpdate>();
        update->setIdentifier("com.a");
        update->setUpdateId("U");
        update->setVersionTo("2.0");
        update->setHasStartedDownload(true);
        update->setDownloadComplete(row.downloadedBefore);
        update->setHasStartedInstallation(row.downloadedBefore);
        controller->db().updateInfoForUpdateWithIdentifier("com.a", update);
        std::optional<PlistDictionary> root;  // the file as the notice goes out
        service.onCall = [&](const std::string&) { root = readPropertyListDictionary(file()); };

        (controller.get()->*row.report)(update);

        EXPECT_EQ(update->downloadComplete(), row.downloadComplete);
        EXPECT_EQ(update->installationComplete(), row.installationComplete);
        const Date wait = update->waitUntilDate().value_or(kEpoch);
        EXPECT_EQ(wait, row.postponed == 0h ? kEpoch : platform.clock->time + row.postponed);
        EXPECT_EQ(controller->db().getUpdateInfoForIdentifier("com.a"), update);
        ASSERT_TRUE(root);
        const PlistDictionary* stored = root->dictionary("UpdateDB")->dictionary("com.a");
        ASSERT_EQ(stored != nullptr, row.storedInFile);
        if (stored != nullptr) {
            const KoraUpdate restored(*stored);
            EXPECT_EQ(restored.downloadComplete(), row.downloadComplete);
            EXPECT_EQ(restored.installationComplete(), row.installationComplete);
            EXPECT_EQ(stored->string("waitUntilDate"), storedDateText(wait));
        }
        const PlistDictionary* application = root->dictionary("KoraDB")->dictionary("com.a");
        EXPECT_EQ(application->string("lastKnownVersion"), row.applicationVersion);
        EXPECT_EQ(application->string("bundlePath"), "/A.app");
        EXPECT_FALSE(controller->db().registeredApplicationForIdentifier("com.a")->hasUpdateAvailable());

        ASSERT_EQ(service.calls, Lines{row.operation});
        const RecordingUpdateService::Request& request = service.requests.at(0);
        const std::string time = storedDateText(platform.clock->time);
        EXPECT_EQ(*noticeFields(request), expectedNotice(row.applicationVersion, time));
        if (const auto* complete = std::get_if<KORA_InstallComplete>(&request)) {
            EXPECT_EQ(complete->FinishTime(), time);
        } else if (const auto* error = std::get_if<KORA_DownloadError>(&request)) {
            EXPECT_EQ(std::tuple(error->ErrorTime(), error->ErrorMessage()),
                      std::tuple(std::nullopt, std::nullopt));
        }
        EXPECT_EQ(lines, Lines{"Successfully notified KORA Server"});
    }
}

// Uninstalled while its update ran: the notice still goes out, with only the
// update's own identifier, and no record is made for the new version.
TEST_F(AController, NotifiesAboutTheUpdateOfAnApplicationThatHasGoneWithoutItsFields) {
    auto controller = start();
    auto update = std::make_shared<KoraUpdate>();
    update->setIdentifier("com.gone");
    update->setUpdateId("U");
    update->setVersionTo("2.0");
    service.fail = true;
    controller->installationDidFinishFor(update);

    EXPECT_EQ(controller->db().registeredApplicationForIdentifier("com.gone"), nullptr);
    ASSERT_EQ(service.calls, Lines{"InstallComplete"});
    const auto& notice = std::get<KORA_InstallComplete>(service.requests.at(0));
    EXPECT_EQ(notice.UpdateID(), "U");
    EXPECT_EQ(std::tuple(notice.InstallationID(), notice.ProductID(), notice.Brand(),
                         notice.Version()),
              std::tuple(std::nullopt, std::nullopt, std::nullopt, std::nullopt));
    EXPECT_EQ(notice.HardwareUUID(), "SERIAL-1");
    EXPECT_TRUE(lines.empty()) << "a failed notice logs nothing";
}

}  // namespace
}  // namespace kora
