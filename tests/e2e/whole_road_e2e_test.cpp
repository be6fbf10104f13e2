// The whole road of an update with the real binaries: kora-service on the host's
// loopback offers and journals, korad and koractl run in a bubblewrap sandbox on a
// private bus (helpers in session.sh). In-process servers stand in for the service
// or for its archive store where a test needs a reply the service never gives.

#include <gio/gio.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "e2e/sandbox_test.h"
#include "support/command.h"
#include "support/file_text.h"
#include "support/loopback_soap_server.h"
#include "support/temp_dir.h"
#include "support/zip_writer.h"

namespace kora {
namespace {

using testing_support::LoopbackSoapServer;
using testing_support::ReceivedRequest;
using testing_support::ScriptedReply;

const std::string kProduct = "7C9E6679-7425-40DE-944B-E07FC1F90AE7";
const std::string kApp = "com.olvara.Connect";
const std::string kNotes = "Olvara Connect 2.0: faster reconnects.\n";

std::string archiveBytes() {
    return test::ZipWriter()
        .folder("OlvaraConnect-2.0/")
        .file("OlvaraConnect-2.0/ReleaseNotes.txt", kNotes)
        .file("OlvaraConnect-2.0/update.plist",
              "<plist version=\"1.0\"><dict><key>Actions</key><array><dict>"
              "<key>Command</key><string>updatefiles</string>"
              "<key>From</key><string>@update/ReleaseNotes.txt</string>"
              "<key>To</key><string>@" +
                  kApp +
                  "/Contents/Resources/ReleaseNotes.txt</string>"
                  "</dict></array></dict></plist>")
        .bytes();
}

std::size_t count(const std::string& text, const std::string& part) {
    std::size_t found = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++found;
    return found;
}

class WholeRoad : public SandboxTest {
  protected:
    void TearDown() override {
        stopService();
        SandboxTest::TearDown();
    }

    // Publishes the sample update 2.0 (for versions 1.0 to 1.9) of `product`.
    void publish(const std::string& product = kProduct) {
        writeFileText(dir_.path() / "OlvaraConnect-2.0.zip", archiveBytes());
        const CommandOutcome published =
            service({"publish", (dir_.path() / "OlvaraConnect-2.0.zip").string(), "--product",
                     product, "--version", "2.0", "--from-version", "1.0", "--to-version", "1.9"});
        ASSERT_EQ(published.status, 0) << published.output;
    }

    // Starts kora-service on a free loopback port; its offers point at `archiveHost`
    // when given.
    void startService(const std::string& archiveHost = "") {
        const auto printed = dir_.path() / "serve.out";
        g_autoptr(GSubprocessLauncher) launcher =
            g_subprocess_launcher_new(G_SUBPROCESS_FLAGS_STDERR_MERGE);
        g_subprocess_launcher_set_stdout_file_path(launcher, printed.c_str());
        std::vector<std::string> words = {KORA_SERVICE_BINARY, "serve",    "--db",
                                          database(),          "--listen", "127.0.0.1:0"};
        if (!archiveHost.empty()) words.insert(words.end(), {"--public-url", archiveHost});
        std::vector<const char*> argv;
        for (const auto& word : words) argv.push_back(word.c_str());
        argv.push_back(nullptr);
        service_ = g_subprocess_launcher_spawnv(launcher, argv.data(), nullptr);
        ASSERT_NE(service_, nullptr);
        const std::string marker = "listening on ";
        for (int i = 0; i < 100 && address_.empty(); ++i) {
            const std::string text = std::filesystem::exists(printed) ? fileText(printed) : "";
            if (const auto at = text.find(marker); at != std::string::npos && text.ends_with('\n'))
                address_ =
                    text.substr(at + marker.size(), text.find('\n', at) - at - marker.size());
            g_usleep(100'000);
        }
        ASSERT_FALSE(address_.empty()) << "kora-service did not come up";
    }

    void stopService() {
        if (service_ == nullptr) return;
        g_subprocess_send_signal(service_, SIGTERM);
        g_subprocess_wait(service_, nullptr, nullptr);
        g_clear_object(&service_);
    }

    // The service's journal, one JSON object a line; the service is stopped first so
    // that its last entries are written.
    std::vector<std::string> journal() {
        stopService();
        std::vector<std::string> lines;
        std::istringstream text(service({"journal", "--json"}).output);
        for (std::string line; std::getline(text, line);) lines.push_back(line);
        return lines;
    }

    // The operations of the journal with the given text in their fields, in order.
    std::vector<std::string> operations(const std::vector<std::string>& entries,
                                        const std::string& with = "") {
        std::vector<std::string> found;
        const std::string key = "\"operation\":\"";
        for (const std::string& entry : entries) {
            if (entry.find(with) == std::string::npos) continue;
            const auto at = entry.find(key) + key.size();
            found.push_back(entry.substr(at, entry.find('"', at) - at));
        }
        return found;
    }

    // Runs the script in a fresh sandbox with korad pointed at `address` (the
    // service's unless given) ticking every `tick` seconds; the daemon's log and
    // registry are saved as "log" and "registry" however the script ends.
    CommandOutcome session(const std::string& script, const std::string& address = "",
                           int tick = 1) {
        const std::string preamble =
            "KORAD=" KORAD_BINARY " KORACTL=" KORACTL_BINARY
            "\nexport KORAD_SERVICE_ADDRESS=" + (address.empty() ? address_ : address) +
            " KORAD_REACHABILITY_HOST=127.0.0.1 KORAD_TICK_SECONDS=" + std::to_string(tick);
        return sandboxed(preamble,
                         "trap 'cp \"$log\" \"$OUT/log\"; cp \"$registry\" \"$OUT/registry\" || true' EXIT\n" +
                             script,
                         {"--adapters", KORAD_BUILD_DIR, KORAD_LIBEXEC_DIR}, 60);
    }

    std::string database() const { return (dir_.path() / "service.db").string(); }
    CommandOutcome service(std::vector<std::string> words) {
        words.insert(words.begin(), KORA_SERVICE_BINARY);
        words.insert(words.end(), {"--db", database()});
        return runCommand(words);
    }

    GSubprocess* service_ = nullptr;
    std::string address_;
};

// Starts korad with no check due, registers the applications and forces a check.
std::string forceCheck(const std::string& registrations = "register_app " + kApp + " " + kProduct) {
    return "record_recent_check\nstart_korad\n" + registrations + "\n\"$KORACTL\" force-check\n";
}

TEST_F(WholeRoad, AnOfferIsDownloadedInstalledAndReportedToTheService) {
    publish();
    startService();
    const CommandOutcome outcome = session(forceCheck() + R"(
        wait_for 20 registry_version_is 2.0
        wait_for 10 log_has 2 'Successfully notified KORA Server'
        cp /Applications/)" + kApp + ".app/Contents/Resources/ReleaseNotes.txt \"$OUT/notes\"");
    ASSERT_EQ(outcome.status, 0) << outcome.output << saved("log");
    EXPECT_EQ(saved("notes"), kNotes);
    const auto entries = journal();
    EXPECT_EQ(operations(entries),
              (std::vector<std::string>{"Check", "DownloadComplete", "InstallComplete"}));
    EXPECT_EQ(operations(entries, "\"Version\":\"1.0\"").size(), 2u) << "Check, DownloadComplete";
    EXPECT_EQ(operations(entries, "\"Version\":\"2.0\""),
              std::vector<std::string>{"InstallComplete"});
}

TEST_F(WholeRoad, OfTwoApplicationsBothAreAskedAndOnlyTheOneWithAnOfferIsUpdated) {
    publish();
    startService();
    const CommandOutcome outcome =
        session(forceCheck("register_app " + kApp + " " + kProduct +
                           "\nregister_app com.olvara.Mail NO-OFFER-PRODUCT") +
                R"(
        wait_for 20 log_has 2 'Successfully notified KORA Server'
        wait_for 10 grep -q 'did not have a valid ID' "$log")");
    ASSERT_EQ(outcome.status, 0) << outcome.output << saved("log");
    const std::string log = saved("log");
    EXPECT_EQ(count(log, "The update from KORA did not have a valid ID"), 1u) << log;
    EXPECT_EQ(count(log, "Found a update, will start download"), 1u) << log;
    const std::string registry = saved("registry");
    EXPECT_EQ(count(registry, "<key>updateId</key>"), 0u) << "a completed or refused update in\n"
                                                          << registry;
    EXPECT_EQ(count(registry, "<string>2.0</string>"), 1u) << registry;
    const auto entries = journal();
    EXPECT_EQ(operations(entries, "NO-OFFER-PRODUCT"), std::vector<std::string>{"Check"});
    EXPECT_EQ(operations(entries, kProduct),
              (std::vector<std::string>{"Check", "DownloadComplete", "InstallComplete"}));
}

// Archives the service's offers point at, answered by `reply`; the number of
// requests so far goes into OUT's "archive-requests", where a session can see it.
class WholeRoadWithArchiveStore : public WholeRoad {
  protected:
    void serveArchives(ScriptedReply reply) {
        archives_.respond = [this, reply](const ReceivedRequest&) {
            writeFileText(out() / "archive-requests", std::to_string(archives_.requests.size()));
            return reply;
        };
        publish();
        startService(archives_.urlFor(""));
    }
    static ScriptedReply trickling() {
        return {.contentType = "application/zip", .body = archiveBytes(), .trickleMs = 100};
    }

    LoopbackSoapServer archives_;
};

TEST_F(WholeRoadWithArchiveStore, AFailedDownloadIsReportedAndHeldBackADay) {
    serveArchives({.status = 404, .contentType = "text/plain", .body = "no such archive"});
    const CommandOutcome outcome = session(forceCheck() + R"(
        wait_for 10 postponed
        wait_for 10 log_has 1 'Successfully notified KORA Server'
        sleep 3  # three ticks that must not try again
        seconds_to_wait > "$OUT/wait")");
    ASSERT_EQ(outcome.status, 0) << outcome.output << saved("log");
    EXPECT_EQ(archives_.requests.size(), 1u);
    EXPECT_NEAR(std::stoi(saved("wait")), 24 * 3600, 10);
    EXPECT_NE(saved("registry").find("<key>updateId</key>"), std::string::npos) << "kept";
    EXPECT_EQ(operations(journal()), (std::vector<std::string>{"Check", "DownloadError"}));
}

TEST_F(WholeRoad, ASoapFaultOnCheckStoresNothingAndStillRecordsTheCheck) {
    LoopbackSoapServer faulting;
    faulting.answerAlways({.status = 500,
                           .body = testing_support::soap11Envelope(
                               "<soap:Fault><faultcode>soap:Server</faultcode>"
                               "<faultstring>catalogue offline</faultstring></soap:Fault>")});
    const CommandOutcome outcome = session(forceCheck() + R"(
        wait_for 10 grep -q 'Error checking for updates' "$log"
        wait_for 10 checked_since "$recorded_check")",
                                           faulting.url());
    ASSERT_EQ(outcome.status, 0) << outcome.output << saved("log");
    EXPECT_EQ(faulting.requests.size(), 1u);
    EXPECT_EQ(saved("registry").find("<key>updateId</key>"), std::string::npos)
        << saved("registry");
    EXPECT_EQ(saved("log").find("Found a update"), std::string::npos) << saved("log");
}

// A second forced check while the download runs finds the update in progress and
// drops its offer; roaming then stops the download and holds it back an hour.
TEST_F(WholeRoadWithArchiveStore, ADownloadInProgressIgnoresANewOfferAndStopsForRoaming) {
    serveArchives(trickling());
    const CommandOutcome outcome = session(forceCheck() + R"(
        wait_for 10 grep -q 1 "$OUT/archive-requests"
        "$KORACTL" force-check
        # Roaming does not stop a check already under way.
        wait_for 10 log_has 2 'Checking for updates for'
        "$KORACTL" roaming on
        wait_for 10 postponed
        seconds_to_wait > "$OUT/wait")");
    ASSERT_EQ(outcome.status, 0) << outcome.output << saved("log");
    EXPECT_EQ(archives_.requests.size(), 1u);
    EXPECT_NEAR(std::stoi(saved("wait")), 3600, 10);
    EXPECT_EQ(count(saved("log"), "Found a update, will start download"), 1u) << saved("log");
    EXPECT_EQ(operations(journal()), (std::vector<std::string>{"Check", "Check"}));
}

TEST_F(WholeRoadWithArchiveStore, ADownloadCutByARestartBeginsAgainFromTheStart) {
    serveArchives(trickling());
    const CommandOutcome outcome = session(forceCheck() + R"(
        wait_for 10 grep -q 1 "$OUT/archive-requests"
        stop_korad
        start_korad
        wait_for 10 grep -q 2 "$OUT/archive-requests")");
    ASSERT_EQ(outcome.status, 0) << outcome.output << saved("log");
    ASSERT_EQ(archives_.requests.size(), 2u);
    EXPECT_EQ(archives_.requests[1].path, archives_.requests[0].path);
    EXPECT_FALSE(archives_.requests[1].headers.contains("Range"));
}

// Stopped with the download complete and the installation not yet begun (a
// 3-second tick), the daemon installs the update after its restart.
TEST_F(WholeRoad, AnInstallationPendingAtStopRunsAfterTheRestart) {
    publish();
    startService();
    const CommandOutcome outcome = session(forceCheck() + R"(
        wait_for 15 eval '[[ $(registry_value downloadComplete) == true ]]'
        stop_korad
        grep -c 'InstallComplete' "$log" > "$OUT/installed-before" || true
        notified=$(grep -c 'Successfully notified KORA Server' "$log" || true)
        KORAD_TICK_SECONDS=1 start_korad
        wait_for 10 registry_version_is 2.0
        wait_for 10 log_has $((notified + 1)) 'Successfully notified KORA Server')",
                                           "", 3);
    ASSERT_EQ(outcome.status, 0) << outcome.output << saved("log");
    EXPECT_EQ(saved("installed-before"), "0\n");
    const auto operationsSeen = operations(journal());
    EXPECT_EQ(std::count(operationsSeen.begin(), operationsSeen.end(), "Check"), 1);
    ASSERT_FALSE(operationsSeen.empty());
    EXPECT_EQ(operationsSeen.back(), "InstallComplete");
}

}  // namespace
}  // namespace kora
