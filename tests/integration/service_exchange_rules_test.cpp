// HTTP rules of a service exchange, against a strict loopback server that fails the test on
// an unexpected request or an expected one never sent.

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/http_exchange.h"
#include "soap/kora.h"
#include "soap/soap_binding.h"
#include "support/loopback_soap_server.h"

namespace kora {
namespace {

using namespace testing_support;

// Hears one exchange and keeps what it heard; refuses the body when asked to.
class ListeningDelegate : public HttpExchangeDelegate {
  public:
    explicit ListeningDelegate(bool wantsBody) : wantsBody_(wantsBody) {}

    std::optional<HttpCredential> didReceiveAuthenticationChallenge(bool) override {
        return std::nullopt;
    }
    bool didReceiveResponse(const HttpReplyHead& head) override {
        status = head.status;
        return wantsBody_;
    }
    bool didReceiveData(std::string_view chunk) override {
        body.append(chunk);
        return true;
    }
    void didFailWithError(const ServiceError& failure) override {
        error = failure.text();
        ended = true;
    }
    void connectionDidFinishLoading() override { ended = true; }

    unsigned status = 0;
    std::string body;
    std::optional<std::string> error;
    bool ended = false;

  private:
    bool wantsBody_;
};

// Turns the default main context until `done` or about `seconds` have passed.
template <typename Done>
void spinUntil(Done done, int seconds = 20) {
    const gint64 deadline = g_get_monotonic_time() + seconds * G_USEC_PER_SEC;
    while (!done() && g_get_monotonic_time() < deadline) g_main_context_iteration(nullptr, FALSE);
}

class ServiceExchangeRules : public testing::Test {
  protected:
    LoopbackSoapServer server_;
};

TEST_F(ServiceExchangeRules, BothXmlContentTypesAreReadAsSoapReplies) {
    const struct {
        const char* contentType;
        bool read;
    } rows[] = {
        {"text/xml", true},        {"text/xml; charset=utf-8", true},
        {"application/xml", true}, {"application/xml; charset=utf-8", true},
        {"text/html", false},
    };
    for (const auto& row : rows) {
        server_.expect({.headers = {{"SOAPAction", "http://kora.olvara.com/ns/KORA/Check"}},
                        .reply = {.contentType = row.contentType, .body = kCheckResponse}});
        const auto response =
            std::make_shared<KORASoap12Binding>(server_.url())->CheckUsingParameters(KORA_Check());
        EXPECT_EQ(response->firstBodyPartAs<KORA_CheckResponse>() != nullptr, row.read)
            << row.contentType;
        EXPECT_EQ(response->error().has_value(), !row.read) << row.contentType;
    }
}

// A header with a line break, or a name with a space or colon, is left out; the others go.
TEST_F(ServiceExchangeRules, UnsendableRequestHeadersAreLeftOutAndTheRestSent) {
    server_.expect({.headers = {{"X-Kept", "yes"}, {"X-Also-Kept", "a b"}},
                    .absentHeaders = {"X-Split", "X-Injected", "Bad Name", "X-Colon"},
                    .reply = {.body = kCheckResponse}});
    HttpRequest request{.url = server_.url(),
                        .headers = {{"X-Kept", "yes"},
                                    {"X-Split", "a\r\nX-Injected: 1"},
                                    {"X-Split", "a\nX-Injected: 1"},
                                    {"Bad Name", "v"},
                                    {"X-Colon:", "v"},
                                    {"", "v"},
                                    {"X-Also-Kept", "a b"}},
                        .body = "<x/>"};
    auto delegate = std::make_shared<ListeningDelegate>(true);
    const auto exchange = HttpExchange::start(request, delegate);
    spinUntil([&] { return delegate->ended; });
    EXPECT_EQ(delegate->error, std::nullopt);
    EXPECT_EQ(delegate->body, kCheckResponse);
}

// A body the delegate does not want is not read: the connection is dropped at once.
TEST_F(ServiceExchangeRules, ARefusedBodyIsAbandonedAndItsConnectionDropped) {
    const std::string longBody(2000, 'x');  // 20 s at one byte every 10 ms
    server_.expect({.reply = {.body = longBody, .trickleMs = 10, .trickleBytes = 1}});
    auto delegate = std::make_shared<ListeningDelegate>(false);
    const auto exchange =
        HttpExchange::start({.url = server_.url(), .headers = {}, .body = "<x/>"}, delegate);
    spinUntil([&] { return server_.abandonedReplies > 0; });
    EXPECT_EQ(server_.abandonedReplies, 1) << "the connection outlived the refused body";
    EXPECT_EQ(delegate->status, 200u);
    EXPECT_EQ(delegate->body, "") << "the delegate heard a body it refused";
    EXPECT_FALSE(delegate->ended) << "the delegate heard an end after refusing the body";
}

// An exchange past its deadline drops its connection: the server finds nobody to answer.
TEST_F(ServiceExchangeRules, AnExchangePastItsDeadlineLeavesNoRequestWaiting) {
    server_.expect({.reply = {.body = kCheckResponse, .held = true}});
    auto delegate = std::make_shared<ListeningDelegate>(true);
    const auto exchange = HttpExchange::start(
        {.url = server_.url(), .headers = {}, .body = "<x/>", .deadline = std::chrono::seconds(2)},
        delegate);
    spinUntil([&] { return delegate->ended; });
    ASSERT_EQ(delegate->error, exchangeTimedOutError().text());
    server_.releaseHeldReplies();
    spinUntil([&] { return server_.finishedReplies > 0; });
    EXPECT_EQ(server_.abandonedReplies, 1) << "the request outlived its exchange";
    EXPECT_EQ(delegate->body, "");
}

}  // namespace
}  // namespace kora
