#include <gio/gio.h>
#include <gtest/gtest.h>
#include <libsoup/soup.h>
#include <signal.h>

#include <fstream>
#include <iterator>

#include "platform/digest.h"
#include "soap/soap_update_service.h"
#include "support/kora_service_catalogue.h"

namespace kora::service {
namespace {

using test::ServiceCatalogue;

constexpr const char* kNoUpdate = "00000000-0000-0000-0000-000000000000";

struct HttpReply {
    unsigned status = 0;
    std::string contentType;
    std::string disposition;
    std::string body;
};

HttpReply httpRequest(const char* method, const std::string& url, const std::string& body = "") {
    g_autoptr(SoupSession) session = soup_session_new();
    g_autoptr(SoupMessage) message = soup_message_new(method, url.c_str());
    if (!body.empty()) {
        g_autoptr(GBytes) bytes = g_bytes_new(body.data(), body.size());
        soup_message_set_request_body_from_bytes(message, "text/xml; charset=utf-8", bytes);
    }
    g_autoptr(GError) error = nullptr;
    g_autoptr(GBytes) reply = soup_session_send_and_read(session, message, nullptr, &error);
    HttpReply result;
    result.status = soup_message_get_status(message);
    SoupMessageHeaders* headers = soup_message_get_response_headers(message);
    const char* type = soup_message_headers_get_one(headers, "Content-Type");
    const char* disposition = soup_message_headers_get_one(headers, "Content-Disposition");
    result.contentType = type ? type : "";
    result.disposition = disposition ? disposition : "";
    gsize size = 0;
    const auto* data = reply ? static_cast<const char*>(g_bytes_get_data(reply, &size)) : nullptr;
    result.body.assign(data ? data : "", size);
    return result;
}

// The first line a child process writes, or "" when none comes within 10 s.
std::string firstLine(GSubprocess* process) {
    g_autoptr(GDataInputStream) output =
        g_data_input_stream_new(g_subprocess_get_stdout_pipe(process));
    struct Reading {
        bool done = false;
        std::string line;
    } reading;
    g_data_input_stream_read_line_async(
        output, G_PRIORITY_DEFAULT, nullptr,
        [](GObject* source, GAsyncResult* result, gpointer data) {
            auto* reading = static_cast<Reading*>(data);
            g_autofree char* line = g_data_input_stream_read_line_finish(
                G_DATA_INPUT_STREAM(source), result, nullptr, nullptr);
            reading->line = line ? line : "";
            reading->done = true;
        },
        &reading);
    const gint64 deadline = g_get_monotonic_time() + 10 * G_USEC_PER_SEC;
    while (!reading.done && g_get_monotonic_time() < deadline) {
        g_main_context_iteration(nullptr, FALSE);
        g_usleep(1000);
    }
    if (!reading.done) g_subprocess_force_exit(process);
    while (!reading.done) g_main_context_iteration(nullptr, TRUE);
    return reading.line;
}

// A running `kora-service serve` on 127.0.0.1 and a free port, stopped with
// SIGTERM at the end of the test.
class KoraServiceServe : public ::testing::Test {
  protected:
    void startServing(const char* option = "--listen=127.0.0.1:0") {
        const std::string db = "--db=" + catalogue_.database();
        const char* argv[] = {KORA_SERVICE_BINARY, "serve", "--listen", "127.0.0.1:0", db.c_str(),
                              option, nullptr};
        g_autoptr(GError) error = nullptr;
        server_ = g_subprocess_newv(argv, G_SUBPROCESS_FLAGS_STDOUT_PIPE, &error);
        ASSERT_NE(server_, nullptr) << error->message;
        const std::string line = firstLine(server_);
        ASSERT_NE(line.find("http://"), std::string::npos) << "serve did not listen";
        endpoint_ = line.substr(line.find("http://"));
    }

    // Stops the server, which writes its last journal entries on the way out.
    void stopServing() {
        if (server_ == nullptr) return;
        g_subprocess_send_signal(server_, SIGTERM);
        g_subprocess_wait(server_, nullptr, nullptr);
        EXPECT_TRUE(g_subprocess_get_if_exited(server_));
        EXPECT_EQ(g_subprocess_get_exit_status(server_), 0);
        g_clear_object(&server_);
    }

    void TearDown() override { stopServing(); }

    KORA_Check check(const char* version, const char* brand = "Acme") const {
        KORA_Check request;
        request.setInstallationID(std::string("I-1"));
        request.setProductID(std::string("P"));
        request.setBrand(std::string(brand));
        request.setVersion(std::string(version));
        request.setServicePack(3.0);
        return request;
    }

    ServiceCatalogue catalogue_;
    GSubprocess* server_ = nullptr;
    std::string endpoint_;
};

TEST_F(KoraServiceServe, OffersTheNewestMatchingUpdateWhoseArchiveDownloadsUnderItsFolderName) {
    catalogue_.publish("App-1.5", {"--product", "P", "--version", "1.5"});
    const std::string id = catalogue_.publish(
        "App-2.0", {"--product", "P", "--version", "2.0", "--brand", "Acme", "--parameters",
                    "-restart"});
    startServing();
    SoapUpdateService service(endpoint_);

    const auto reply = service.check(check("1.0"));
    ASSERT_TRUE(reply.response) << (reply.error ? reply.error->description : "a fault");
    const KORA_cUpdate& offer = *reply.response->CheckResult();
    EXPECT_EQ(offer.UpdateID(), id);
    EXPECT_EQ(offer.InstallationID(), "I-1");
    EXPECT_EQ(offer.VersionTo(), "2.0");
    EXPECT_EQ(offer.Parameters(), "-restart");
    const auto archive = catalogue_.folder() / "App-2.0.zip";
    EXPECT_EQ(offer.Hash(), sha1HexOfFile(archive));
    EXPECT_EQ(offer.Size_(), std::to_string(std::filesystem::file_size(archive)));

    const HttpReply download = httpRequest("GET", *offer.Location());
    EXPECT_EQ(download.status, 200u);
    EXPECT_EQ(download.disposition, "attachment; filename=App-2.0.zip");
    std::ifstream published(archive, std::ios::binary);
    EXPECT_EQ(download.body, std::string(std::istreambuf_iterator<char>(published), {}));

    EXPECT_EQ(service.check(check("2.0")).response->CheckResult()->UpdateID(), kNoUpdate);
    EXPECT_EQ(httpRequest("GET", *offer.Location() + "x").status, 404u);
}

TEST_F(KoraServiceServe, JournalsEveryRequestWithItsFieldsAndClientAddress) {
    startServing();
    SoapUpdateService service(endpoint_);
    EXPECT_EQ(service.check(check("1.0", "")).response->CheckResult()->UpdateID(), kNoUpdate);

    KORA_DownloadError notice;
    notice.setInstallationID(std::string("I-1"));
    notice.setUpdateID(std::string("U-9"));
    notice.setErrorMessage(std::string("disk \"full\"\n"));
    const auto acknowledged = service.downloadError(notice);
    EXPECT_TRUE(acknowledged.response && acknowledged.response->DownloadErrorResult());
    KORA_Uninstall uninstall;
    EXPECT_TRUE(service.uninstall(uninstall).response);
    stopServing();

    const CommandOutcome journal = catalogue_.run({"journal", "--json"});
    EXPECT_EQ(journal.status, 0);
    const std::string expected[] = {
        R"("clientAddress":"127.0.0.1","operation":"Check","fields":{"InstallationID":"I-1",)"
        R"("ProductID":"P","ServicePack":3,"Version":"1.0"},"fault":null})",
        R"("operation":"DownloadError","fields":{"InstallationID":"I-1","UpdateID":"U-9",)"
        R"("ErrorMessage":"disk \"full\"\n"},"fault":null})",
        R"("operation":"Uninstall","fields":{},"fault":null})",
    };
    std::size_t position = 0;
    for (const std::string& entry : expected) {
        position = journal.output.find(entry, position);
        EXPECT_NE(position, std::string::npos) << entry << "\nin\n" << journal.output;
    }
}

TEST_F(KoraServiceServe, OffersWhatIsPublishedWhileItRunsUnderThePublicUrl) {
    startServing("--public-url=https://updates.example.com/");
    SoapUpdateService service(endpoint_);
    EXPECT_EQ(service.check(check("1.0")).response->CheckResult()->UpdateID(), kNoUpdate);
    const std::string id = catalogue_.publish("App-2.0", {"--product", "P", "--version", "2.0"});
    const auto offer = service.check(check("1.0")).response->CheckResult();
    EXPECT_EQ(offer->UpdateID(), id);
    EXPECT_EQ(offer->Location(), "https://updates.example.com/archives/" + id + "/App-2.0.zip");
}

TEST_F(KoraServiceServe, AnswersSoap12InSoap12) {
    startServing();
    const HttpReply reply = httpRequest(
        "POST", endpoint_,
        R"(<e:Envelope xmlns:e="http://www.w3.org/2003/05/soap-envelope"><e:Body>)"
        R"(<Check xmlns="http://kora.olvara.com/ns/KORA"><ProductID>P</ProductID></Check>)"
        R"(</e:Body></e:Envelope>)");
    EXPECT_EQ(reply.status, 200u);
    EXPECT_EQ(reply.contentType, "application/soap+xml; charset=utf-8");
    EXPECT_NE(reply.body.find(R"(xmlns:soap="http://www.w3.org/2003/05/soap-envelope")"),
              std::string::npos);
    EXPECT_NE(reply.body.find("<KORA:UpdateID>00000000-"), std::string::npos) << reply.body;
}

TEST_F(KoraServiceServe, JournalFollowShowsRequestsAsTheyArrive) {
    startServing();
    const std::string db = "--db=" + catalogue_.database();
    const char* argv[] = {KORA_SERVICE_BINARY, "journal", "--follow", db.c_str(), nullptr};
    g_autoptr(GSubprocess) follow = g_subprocess_newv(argv, G_SUBPROCESS_FLAGS_STDOUT_PIPE, nullptr);
    ASSERT_NE(follow, nullptr);
    SoapUpdateService service(endpoint_);
    KORA_Uninstall uninstall;
    uninstall.setProductID(std::string("P-7"));
    EXPECT_TRUE(service.uninstall(uninstall).response);

    const std::string line = firstLine(follow);
    g_subprocess_force_exit(follow);
    EXPECT_NE(line.find(R"(Uninstall  {"ProductID":"P-7"})"), std::string::npos) << line;
}

struct MalformedRequest {
    const char* name;
    std::string body;
    unsigned status;
    const char* reason;
};

TEST_F(KoraServiceServe, AnswersMalformedRequestsWithASoapFaultAndKeepsServing) {
    startServing();
    const MalformedRequest rows[] = {
        {"not XML", "<soap:Envelope", 500, "not well-formed XML"},
        {"not SOAP", "<Envelope/>", 500, "not a SOAP 1.1 or 1.2 Envelope"},
        {"no operation",
         R"(<s:Envelope xmlns:s="http://schemas.xmlsoap.org/soap/envelope/"><s:Body/></s:Envelope>)",
         500, "names no operation"},
        {"unknown operation",
         R"(<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope"><s:Body><Drop/></s:Body></s:Envelope>)",
         400, "Unknown operation \"Drop\""},
        {"huge", std::string(300 * 1024, '<'), 413, "over the 262144-byte limit"},
    };
    for (const MalformedRequest& row : rows) {
        const HttpReply reply = httpRequest("POST", endpoint_, row.body);
        EXPECT_EQ(reply.status, row.status) << row.name;
        EXPECT_NE(reply.body.find(":Fault>"), std::string::npos) << row.name;
        EXPECT_NE(reply.body.find(row.reason), std::string::npos) << row.name << reply.body;
    }
    EXPECT_EQ(httpRequest("GET", endpoint_).status, 405u);

    SoapUpdateService service(endpoint_);
    EXPECT_TRUE(service.check(check("1.0")).response);
    stopServing();
    const std::string journal = catalogue_.run({"journal"}).output;
    EXPECT_EQ(std::count(journal.begin(), journal.end(), '\n'), 6);
    EXPECT_NE(journal.find("refused: \"Unknown operation \\\"Drop\\\"\""), std::string::npos);
}

}  // namespace
}  // namespace kora::service
