// An update downloading its archive from a real HTTP server on loopback.

#include <glib.h>
#include <gtest/gtest.h>
#include <libsoup/soup.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/file_download.h"
#include "platform/logging.h"
#include "support/file_text.h"
#include "support/loopback_soap_server.h"
#include "support/raw_reply_server.h"
#include "support/self_signed_certificate.h"
#include "support/temp_dir.h"
#include "update/kora_update.h"
#include "update/kora_update_delegate.h"

namespace kora {
namespace {

namespace fs = std::filesystem;
using testing_support::ReceivedRequest;
using testing_support::ScriptedReply;
using Calls = std::vector<std::string>;

const std::string kArchive(300 * 1024, 'z');

void runFor(
    std::chrono::milliseconds limit, const std::function<bool()>& done = [] { return false; }) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!done() && std::chrono::steady_clock::now() < end) {
        g_main_context_iteration(nullptr, FALSE);
        g_usleep(200);
    }
}

int openDescriptorsOn(const fs::path& path) {
    int count = 0;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        count += fs::read_symlink(entry.path(), ignored) == path;
    }
    return count;
}

// Records each outcome with what the update and its file looked like then.
// It may drop the last reference to the update from inside the call.
struct RecordingDelegate final : KoraUpdateDelegate {
    Calls calls;
    bool completeWhenTold = true;
    int descriptorsWhenTold = -1;
    std::shared_ptr<KoraUpdate> dropInCallback;

    void record(const std::string& call, const std::shared_ptr<KoraUpdate>& update) {
        calls.push_back(call);
        completeWhenTold = update->downloadComplete();
        if (update->localFilePath())
            descriptorsWhenTold = openDescriptorsOn(*update->localFilePath());
        dropInCallback.reset();
    }
    void downloadErrorOn(const std::shared_ptr<KoraUpdate>& u) override { record("error", u); }
    void downloadDidFinishFor(const std::shared_ptr<KoraUpdate>& u) override { record("done", u); }
    void installationErrorOn(const std::shared_ptr<KoraUpdate>&) override {}
    void installationDidFinishFor(const std::shared_ptr<KoraUpdate>&) override {}
};

class UpdateDownload : public ::testing::Test {
  protected:
    UpdateDownload() {
        setLogSink([this](LogChannel, int, const std::string& text) { logs.push_back(text); });
        update->setDelegate(&delegate);
        update->setDownloadFolder(folder.path() / "downloads");
        update->setDownloadLimits({std::chrono::seconds(5), std::chrono::seconds(1), 1024});
        server.respond = [](const ReceivedRequest& request) {
            if (request.path == "/moved") {
                return ScriptedReply{.status = 302, .headers = {{"Location", "/final%20name.zip"}}};
            }
            if (request.path == "/missing.zip") return ScriptedReply{.status = 404};
            if (request.path == "/slow.zip") {
                return ScriptedReply{
                    .body = std::string(4000, 't'), .trickleMs = 100, .trickleBytes = 10};
            }
            if (request.path == "/get") {
                return ScriptedReply{.body = kArchive,
                                     .headers = {{"Content-Disposition",
                                                  "attachment; filename=\"../../etc/evil.zip\""}}};
            }
            return ScriptedReply{.body = kArchive};
        };
    }
    ~UpdateDownload() override { setLogSink(nullptr); }

    // Downloads `url` and waits for the outcome, and a little longer.
    void download(const std::string& url) {
        delegate.calls.clear();
        logs.clear();
        update->setDownloadComplete(false);
        update->setDownloadLocation(url);
        ASSERT_TRUE(update->startDownload());
        runFor(std::chrono::seconds(10), [this] { return !delegate.calls.empty(); });
        runFor(std::chrono::milliseconds(50));
    }

    std::string destination(const std::string& name) const {
        return (folder.path() / "downloads" / name).string();
    }

    TempDir folder;
    testing_support::LoopbackSoapServer server;
    RecordingDelegate delegate;
    std::shared_ptr<KoraUpdate> update = std::make_shared<KoraUpdate>();
    Calls logs;
};

// The name comes from the reply, never leads outside the folder, and
// whatever was at that name is replaced: a planted link is not followed.
TEST_F(UpdateDownload, WritesTheArchiveUnderTheSuggestedNameAndClosesItBeforeTellingTheDelegate) {
    fs::create_directories(folder.path() / "downloads");
    std::ofstream(folder.path() / "victim") << "keep me";
    fs::create_symlink(folder.path() / "victim", destination("link.zip"));
    std::ofstream(destination("old.zip")) << std::string(2 * kArchive.size(), 'o');
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"/archives/update-1.zip", "update-1.zip"},
        {"/moved", "final name.zip"},
        {"/get?id=7", "evil.zip"},
        {"/link.zip", "link.zip"},
        {"/old.zip", "old.zip"},
    };
    for (const auto& [path, savedAs] : rows) {
        SCOPED_TRACE(path);
        download(server.urlFor(path));
        EXPECT_EQ(delegate.calls, Calls{"done"});
        EXPECT_FALSE(delegate.completeWhenTold);
        EXPECT_EQ(delegate.descriptorsWhenTold, 0);
        EXPECT_TRUE(update->downloadComplete());
        EXPECT_TRUE(update->hasStartedDownload());
        EXPECT_EQ(update->localFilePath(), destination(savedAs));
        EXPECT_TRUE(fileText(destination(savedAs)) == kArchive);
        EXPECT_FALSE(fs::is_symlink(destination(savedAs)));
        EXPECT_TRUE(logs.empty());
    }
    EXPECT_EQ(fileText(folder.path() / "victim"), "keep me");
}

TEST(SuggestedFileName, IsABaseNameAndNeverEmptyOrADotName) {
    const std::vector<
        std::tuple<std::optional<std::string>, std::string, std::optional<std::string>>>
        rows = {
            {std::nullopt, "/a/x%2Fy.zip", "y.zip"}, {"dir/c.zip", "/a/b.zip", "c.zip"},
            {std::nullopt, "/a/", std::nullopt},     {std::nullopt, "/a/%2E%2E", std::nullopt},
            {std::nullopt, "/a/%00", std::nullopt},  {"..", "/a/b.zip", std::nullopt},
        };
    for (const auto& [disposition, urlPath, expected] : rows)
        EXPECT_EQ(suggestedFileName(disposition, urlPath), expected) << urlPath;
}

// Each failure reaches the delegate once, with one log line; the path chosen
// before it stays.
TEST_F(UpdateDownload, ReportsEachFailureOnceAndKeepsThePath) {
    testing_support::RawReplyServer cutOff("HTTP/1.1 200 OK\r\nContent-Length: 10000000\r\n\r\n" +
                                           std::string(64 * 1024, 'x'));
    fs::create_directories(fs::path(destination("blocked.zip")) / "inside");
    const std::string earlier = "/earlier/path.zip";
    const std::vector<std::tuple<std::string, const char*, std::string>> rows = {
        {server.urlFor("/missing.zip"), "404 Not Found", earlier},
        {server.urlFor("/"), "no usable file", earlier},
        {cutOff.urlFor("/cut.zip"), "", destination("cut.zip")},
        {server.urlFor("/slow.zip"), "timed out", destination("slow.zip")},
        {server.urlFor("/blocked.zip"), "Could not create", destination("blocked.zip")},
    };
    for (const auto& [url, descriptionPart, pathAfter] : rows) {
        SCOPED_TRACE(url);
        update->setLocalFilePath(earlier);
        download(url);
        EXPECT_EQ(delegate.calls, Calls{"error"});
        EXPECT_FALSE(update->hasStartedDownload());
        EXPECT_FALSE(update->downloadComplete());
        EXPECT_EQ(update->localFilePath(), pathAfter);
        ASSERT_EQ(logs.size(), 1u) << ::testing::PrintToString(logs);
        EXPECT_EQ(logs[0].rfind("Download failed! Error - ", 0), 0u) << logs[0];
        EXPECT_NE(logs[0].find(descriptionPart), std::string::npos) << logs[0];
        EXPECT_NE(logs[0].find(url), std::string::npos) << logs[0];
    }
}

TEST_F(UpdateDownload, RefusesAServerWhoseCertificateNoAuthoritySigned) {
    GError* error = nullptr;
    g_autoptr(GTlsCertificate) certificate =
        g_tls_certificate_new_from_pem(testing_support::kSelfSignedCertificateAndKey, -1, &error);
    ASSERT_NE(certificate, nullptr) << error->message;
    g_autoptr(SoupServer) tls = soup_server_new("tls-certificate", certificate, nullptr);
    ASSERT_TRUE(soup_server_listen_local(tls, 0, SOUP_SERVER_LISTEN_HTTPS, &error));
    GSList* uris = soup_server_get_uris(tls);
    const int port = g_uri_get_port(static_cast<GUri*>(uris->data));
    g_slist_free_full(uris, reinterpret_cast<GDestroyNotify>(g_uri_unref));

    download("https://127.0.0.1:" + std::to_string(port) + "/a.zip");
    EXPECT_EQ(delegate.calls, Calls{"error"});
    EXPECT_NE(logs.at(0).find("certificate"), std::string::npos) << logs[0];
    // The handshake ran on GLib's worker threads, where GnuTLS leaves thread
    // storage that LeakSanitizer cannot walk at exit; let those threads end.
    g_thread_pool_set_max_unused_threads(0);
    runFor(std::chrono::seconds(1));
    g_thread_pool_stop_unused_threads();
}

TEST_F(UpdateDownload, CallsNothingBackAfterACancelAndSurvivesBeingDroppedByItsDelegate) {
    update->setDownloadFolder(folder.path() / "new" / "downloads");
    server.answerAlways({.body = kArchive, .delayMs = 100});
    update->setDownloadLocation(server.urlFor("/a.zip"));
    for (const auto stop : {&KoraUpdate::cancelDownload, &KoraUpdate::pauseDownload}) {
        ASSERT_TRUE(update->startDownload());
        ((*update).*stop)();
        EXPECT_FALSE(update->hasStartedDownload());
    }
    runFor(std::chrono::milliseconds(400));
    EXPECT_TRUE(delegate.calls.empty());

    const std::weak_ptr<KoraUpdate> watched = update;
    ASSERT_TRUE(update->startDownload());
    delegate.dropInCallback = std::exchange(update, nullptr);
    runFor(std::chrono::seconds(10), [this] { return !delegate.calls.empty(); });
    EXPECT_EQ(delegate.calls, Calls{"done"});
    EXPECT_TRUE(watched.expired());
    EXPECT_EQ(fs::status(folder.path() / "new" / "downloads").permissions(), fs::perms::all);
}

TEST_F(UpdateDownload, StartsNothingWithoutAUsableLocation) {
    update->cancelDownload();  // no handle: nothing changes
    update->setHasStartedDownload(true);
    EXPECT_TRUE(update->startDownload());  // no location: the flag as it was
    update->cancelDownload();
    EXPECT_TRUE(update->hasStartedDownload());

    update->setDownloadLocation("not a url");
    EXPECT_FALSE(update->startDownload());
    EXPECT_FALSE(update->hasStartedDownload());
    runFor(std::chrono::milliseconds(50));
    EXPECT_TRUE(delegate.calls.empty());
    EXPECT_TRUE(logs.empty());
}

}  // namespace
}  // namespace kora
