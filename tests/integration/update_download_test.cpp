// An update downloading its archive from a real HTTP server on loopback.

#include <glib.h>
#include <gtest/gtest.h>
#include <libsoup/soup.h>
#include <sys/stat.h>
#include <unistd.h>

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
#include "support/file_contents.h"
#include "support/loopback_soap_server.h"
#include "support/raw_reply_server.h"
#include "support/self_signed_certificate.h"
#include "support/temp_dir.h"
#include "update/kora_update.h"
#include "update/kora_update_delegate.h"

namespace kora {
namespace {

namespace fs = std::filesystem;
using testing_support::LoopbackSoapServer;
using testing_support::RawReplyServer;
using testing_support::ScriptedReply;

const std::string kArchive(300 * 1024, 'z');

// Runs the main loop until `done` holds or `limit` has passed.
void runUntil(const std::function<bool()>& done, std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!done() && std::chrono::steady_clock::now() < end) {
        g_main_context_iteration(nullptr, FALSE);
        g_usleep(200);
    }
}

// How many descriptors of this process are open on `path`.
int openDescriptorsOn(const fs::path& path) {
    int count = 0;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        if (fs::read_symlink(entry.path(), ignored) == path) ++count;
    }
    return count;
}

// Records each outcome with what the update looked like at that moment. It
// may drop the last reference to the update from inside the call.
struct RecordingDelegate final : KoraUpdateDelegate {
    std::vector<std::string> calls;
    bool completeWhenTold = true;
    std::string fileWhenTold;
    int descriptorsWhenTold = -1;
    std::shared_ptr<KoraUpdate> dropInCallback;

    void record(const std::string& call, const std::shared_ptr<KoraUpdate>& update) {
        calls.push_back(call);
        completeWhenTold = update->downloadComplete();
        if (const auto path = update->localFilePath(); path && fs::is_regular_file(*path)) {
            fileWhenTold = fileContents(*path);
            descriptorsWhenTold = openDescriptorsOn(*path);
        }
        dropInCallback.reset();
    }
    void downloadErrorOn(const std::shared_ptr<KoraUpdate>& u) override { record("error", u); }
    void downloadDidFinishFor(const std::shared_ptr<KoraUpdate>& u) override {
        record("finished", u);
    }
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
    }
    ~UpdateDownload() override { setLogSink(nullptr); }

    // Starts the download of `url` and waits for its outcome.
    void download(const std::string& url) {
        update->setDownloadLocation(url);
        ASSERT_TRUE(update->startDownload());
        EXPECT_TRUE(update->hasStartedDownload());
        runUntil([this] { return !delegate.calls.empty(); }, std::chrono::seconds(10));
        runUntil([] { return false; }, std::chrono::milliseconds(50));  // nothing more comes
    }

    std::string destination(const std::string& name) const {
        return (folder.path() / "downloads" / name).string();
    }

    TempDir folder;
    LoopbackSoapServer server;
    RecordingDelegate delegate;
    std::shared_ptr<KoraUpdate> update = std::make_shared<KoraUpdate>();
    std::vector<std::string> logs;
};

TEST_F(UpdateDownload, WritesTheWholeArchiveAndClosesItBeforeTellingTheDelegate) {
    server.answerAlways({.contentType = "application/zip", .body = kArchive});
    download(server.urlFor("/archives/update-1.zip"));

    EXPECT_EQ(delegate.calls, std::vector<std::string>{"finished"});
    EXPECT_FALSE(delegate.completeWhenTold);
    EXPECT_TRUE(delegate.fileWhenTold == kArchive);
    EXPECT_EQ(delegate.descriptorsWhenTold, 0);
    EXPECT_TRUE(update->downloadComplete());
    EXPECT_TRUE(update->hasStartedDownload());
    EXPECT_EQ(update->localFilePath(), destination("update-1.zip"));
    EXPECT_EQ(fs::status(folder.path() / "downloads").permissions(), fs::perms::all);
    EXPECT_TRUE(logs.empty());
}

TEST_F(UpdateDownload, SurvivesTheDelegateDroppingTheUpdateInsideTheCallback) {
    server.answerAlways({.body = kArchive});
    const std::weak_ptr<KoraUpdate> watched = update;
    update->setDownloadLocation(server.urlFor("/a.zip"));
    ASSERT_TRUE(update->startDownload());
    delegate.dropInCallback = std::exchange(update, nullptr);
    runUntil([this] { return !delegate.calls.empty(); }, std::chrono::seconds(10));
    EXPECT_EQ(delegate.calls, std::vector<std::string>{"finished"});
    EXPECT_TRUE(watched.expired());
}

// What the reply suggests becomes the file name in the download folder.
struct NamingCase {
    const char* label;
    std::string path;
    ScriptedReply reply;
    const char* savedAs;
};

TEST_F(UpdateDownload, NamesTheFileAfterTheReplyNeverOutsideTheFolder) {
    const std::vector<NamingCase> cases = {
        {"redirect", "/moved.zip",
         {.status = 302, .headers = {{"Location", "/archives/final%20name.zip"}}},
         "final name.zip"},
        {"disposition with a path", "/get",
         {.body = kArchive,
          .headers = {{"Content-Disposition", "attachment; filename=\"../../etc/evil.zip\""}}},
         "evil.zip"},
    };
    for (const NamingCase& row : cases) {
        SCOPED_TRACE(row.label);
        delegate.calls.clear();
        server.respond = [&row](const testing_support::ReceivedRequest& request) {
            return request.path == row.path ? row.reply : ScriptedReply{.body = kArchive};
        };
        download(server.urlFor(row.path));
        EXPECT_EQ(delegate.calls, std::vector<std::string>{"finished"});
        EXPECT_EQ(update->localFilePath(), destination(row.savedAs));
        EXPECT_TRUE(fileContents(destination(row.savedAs)) == kArchive);
    }
}

TEST(SuggestedFileName, IsABaseNameAndNeverEmptyOrADotName) {
    struct Row {
        std::optional<std::string> disposition;
        std::string urlPath;
        std::optional<std::string> expected;
    };
    const std::vector<Row> rows = {
        {std::nullopt, "/a/b.zip", "b.zip"},
        {std::nullopt, "/a/x%2Fy.zip", "y.zip"},
        {"dir/c.zip", "/a/b.zip", "c.zip"},
        {std::nullopt, "/a/", std::nullopt},
        {std::nullopt, "/a/%2E%2E", std::nullopt},
        {std::nullopt, "/a/.", std::nullopt},
        {std::nullopt, "/a/%00", std::nullopt},
        {"..", "/a/b.zip", std::nullopt},
        {"", "/a/b.zip", std::nullopt},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(suggestedFileName(row.disposition, row.urlPath), row.expected)
            << row.disposition.value_or("(none)") << " " << row.urlPath;
    }
}

// Whatever is at the destination goes; a planted link is replaced, never
// followed, so the file it points at keeps its content.
TEST_F(UpdateDownload, ReplacesWhatIsAtTheDestinationWithoutFollowingLinks) {
    server.answerAlways({.body = kArchive});
    const fs::path target = folder.path() / "victim";
    std::ofstream(target) << "keep me";
    fs::create_directories(folder.path() / "downloads");
    fs::create_symlink(target, destination("link.zip"));
    std::ofstream(destination("old.zip")) << std::string(2 * kArchive.size(), 'o');

    for (const char* name : {"link.zip", "old.zip"}) {
        SCOPED_TRACE(name);
        delegate.calls.clear();
        download(server.urlFor(std::string("/") + name));
        EXPECT_EQ(delegate.calls, std::vector<std::string>{"finished"});
        EXPECT_FALSE(fs::is_symlink(destination(name)));
        EXPECT_TRUE(fileContents(destination(name)) == kArchive);
    }
    EXPECT_EQ(fileContents(target), "keep me");
}

// Each way a download can fail reaches the delegate once, with one log line;
// the path chosen before the failure stays.
TEST_F(UpdateDownload, ReportsEachFailureOnceAndKeepsThePath) {
    RawReplyServer cutOff("HTTP/1.1 200 OK\r\nContent-Length: 10000000\r\n\r\n" +
                          std::string(64 * 1024, 'x'));
    server.respond = [](const testing_support::ReceivedRequest& request) {
        if (request.path == "/missing.zip") return ScriptedReply{.status = 404};
        if (request.path == "/slow.zip") {
            return ScriptedReply{.body = std::string(4000, 't'), .trickleMs = 100,
                                 .trickleBytes = 10};
        }
        if (request.path == "/dots") {
            return ScriptedReply{.body = "x",
                                 .headers = {{"Content-Disposition", "attachment; filename=.."}}};
        }
        return ScriptedReply{.body = kArchive};
    };
    fs::create_directories(destination("blocked.zip"));
    std::ofstream(fs::path(destination("blocked.zip")) / "inside") << "x";

    const std::string earlier = "/earlier/path.zip";
    struct Row {
        const char* label;
        std::string url;
        const char* descriptionPart;
        std::string pathAfter;
    };
    const std::vector<Row> rows = {
        {"404", server.urlFor("/missing.zip"), "404 Not Found", earlier},
        {"refused name", server.urlFor("/dots"), "no usable file", earlier},
        {"reset mid-body", cutOff.urlFor("/cut.zip"), "", destination("cut.zip")},
        {"trickle", server.urlFor("/slow.zip"), "timed out", destination("slow.zip")},
        {"destination not creatable", server.urlFor("/blocked.zip"), "Could not create",
         destination("blocked.zip")},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        delegate.calls.clear();
        logs.clear();
        update->setLocalFilePath(earlier);
        download(row.url);
        EXPECT_EQ(delegate.calls, std::vector<std::string>{"error"});
        EXPECT_FALSE(update->hasStartedDownload());
        EXPECT_FALSE(update->downloadComplete());
        EXPECT_EQ(update->localFilePath(), row.pathAfter);
        ASSERT_EQ(logs.size(), 1u) << ::testing::PrintToString(logs);
        EXPECT_EQ(logs[0].rfind("Download failed! Error - ", 0), 0u) << logs[0];
        EXPECT_NE(logs[0].find(row.descriptionPart), std::string::npos) << logs[0];
        EXPECT_NE(logs[0].find(row.url), std::string::npos) << logs[0];
    }
}

TEST_F(UpdateDownload, RefusesAServerWhoseCertificateNoAuthoritySigned) {
    GError* error = nullptr;
    GTlsCertificate* certificate =
        g_tls_certificate_new_from_pem(testing_support::kSelfSignedCertificateAndKey, -1, &error);
    ASSERT_NE(certificate, nullptr) << error->message;
    g_object_set(server.server(), "tls-certificate", certificate, nullptr);
    g_object_unref(certificate);
    soup_server_listen_local(server.server(), 0,
                             static_cast<SoupServerListenOptions>(SOUP_SERVER_LISTEN_IPV4_ONLY |
                                                                  SOUP_SERVER_LISTEN_HTTPS),
                             &error);
    ASSERT_EQ(error, nullptr);
    GSList* uris = soup_server_get_uris(server.server());
    std::string url;
    for (GSList* item = uris; item != nullptr; item = item->next) {
        auto* uri = static_cast<GUri*>(item->data);
        if (g_strcmp0(g_uri_get_scheme(uri), "https") == 0) {
            url = "https://127.0.0.1:" + std::to_string(g_uri_get_port(uri)) + "/a.zip";
        }
    }
    g_slist_free_full(uris, reinterpret_cast<GDestroyNotify>(g_uri_unref));
    server.answerAlways({.body = kArchive});

    download(url);
    EXPECT_EQ(delegate.calls, std::vector<std::string>{"error"});
    EXPECT_TRUE(server.requests.empty());
}

TEST_F(UpdateDownload, CancelledOrPausedDownloadsCallNothingBack) {
    server.answerAlways({.body = kArchive, .delayMs = 100});
    update->setDownloadLocation(server.urlFor("/a.zip"));
    for (const auto stop : {&KoraUpdate::cancelDownload, &KoraUpdate::pauseDownload}) {
        ASSERT_TRUE(update->startDownload());
        ((*update).*stop)();
        EXPECT_FALSE(update->hasStartedDownload());
    }
    runUntil([] { return false; }, std::chrono::milliseconds(400));
    EXPECT_TRUE(delegate.calls.empty());
    // Started again, it runs from the start to its end.
    download(server.urlFor("/a.zip"));
    EXPECT_EQ(delegate.calls, std::vector<std::string>{"finished"});
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
    runUntil([] { return false; }, std::chrono::milliseconds(50));
    EXPECT_TRUE(delegate.calls.empty());
    EXPECT_TRUE(logs.empty());
}

}  // namespace
}  // namespace kora
