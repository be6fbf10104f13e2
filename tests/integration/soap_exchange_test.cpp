#include <gio/gio.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "platform/input_limits.h"
#include "platform/logging.h"
#include "platform/http_exchange.h"
#include "soap/kora.h"
#include "soap/service_settings.h"
#include "soap/soap_binding.h"
#include "soap/soap_binding_operation.h"
#include "support/loopback_soap_server.h"

namespace kora {
namespace {

using namespace testing_support;

// The call's error, or its body parts as record type names and "Fault:<faultcode>".
std::string outcome(const KORASoapBindingResponse& response) {
    if (response.error()) {
        return response.error()->text() + (response.bodyParts() ? " and body parts" : "");
    }
    if (!response.bodyParts()) return "absent";
    std::string summary;
    for (const BodyPart& part : *response.bodyParts()) {
        if (!summary.empty()) summary += ",";
        if (const auto* fault = bodyPartAs<SOAPFault>(part)) {
            summary += "Fault:" + fault->faultcode().value_or("-");
        } else {
            summary += std::get<std::shared_ptr<const KoraRecord>>(part)->recordTypeName();
        }
    }
    return summary;
}

std::string httpError(int code, const std::string& description) {
    return "Error Domain=KORASoap12BindingResponseHTTP Code=" + std::to_string(code) + " \"" +
           description + "\"";
}

std::string mimeError(const std::string& type) {
    return httpError(1, "Unexpected response MIME type to SOAP call:" + type);
}

const std::string kXmlError =
    "Error Domain=KORASoap12BindingResponseXML Code=1 \"Errors while parsing returned XML\"";

class SoapExchange : public testing::Test {
  protected:
    std::shared_ptr<KORASoap12Binding> binding(const char* user = nullptr,
                                               const char* password = nullptr) {
        auto binding = std::make_shared<KORASoap12Binding>(server_.url());
        if (user != nullptr) binding->setAuthUsername(user);
        if (password != nullptr) binding->setAuthPassword(password);
        return binding;
    }
    static void spinUntil(const std::function<bool()>& done) {
        while (!done()) g_main_context_iteration(nullptr, TRUE);
    }

    LoopbackSoapServer server_;
};

TEST_F(SoapExchange, SendsTheEnvelopeWithTheRequestHeaders) {
    server_.answerAlways({.body = kCheckResponse});
    KORA_Check check;
    check.setInstallationID("inst-1");
    check.setVersion("1.0");
    const auto response = binding()->CheckUsingParameters(check);
    ASSERT_EQ(server_.requests.size(), 1u);
    const ReceivedRequest& request = server_.requests[0];
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.path, "/telso/cm/webservices/kora2.asmx");
    EXPECT_EQ(request.body,
              KORASoap12Binding_envelope::sharedInstance().serializedFormUsingHeaderElements(
                  {}, {{"Check", &check}}));
    // Accept-Encoding and Connection are libsoup's own.
    const std::map<std::string, std::string> expected{
        {"User-Agent", "Tarvo/0.2 OSX"},
        {"SOAPAction", "http://kora.olvara.com/ns/KORA/Check"},
        {"Content-Type", "text/xml; charset=utf-8"},
        {"Content-Length", std::to_string(request.body.size())},
        {"Host", "127.0.0.1"},
        {"Accept-Encoding", "gzip, deflate"},
        {"Connection", "Keep-Alive"}};
    EXPECT_EQ(request.headers, expected);
    EXPECT_EQ(outcome(*response), "KORA_CheckResponse");
}

TEST_F(SoapExchange, RepliesBecomeBodyPartsOrErrors) {
    const std::string bigBody(kMaxReplyBodyBytes + 1, ' ');
    // A reply of exactly the cap is read: the response padded with spaces.
    std::string fullBody = kCheckResponse;
    fullBody.resize(kMaxReplyBodyBytes, ' ');
    const std::string tooBig = httpError(2, "Reply body larger than 4194304 bytes");
    const std::pair<ScriptedReply, std::string> cases[] = {
        {{.status = 500,
          .body = soap11Envelope("<soap:Fault><faultcode>soap:Server</faultcode></soap:Fault>")},
         "Fault:soap:Server"},
        {{.status = 500,
          .body = "<e:Envelope xmlns:e='http://www.w3.org/2003/05/soap-envelope'><e:Body>"
                  "<e:Fault><e:Code><e:Value>e:Receiver</e:Value></e:Code></e:Fault>"
                  "</e:Body></e:Envelope>"},
         "Fault:e:Receiver"},
        {{.body = soap11Envelope("\n <!-- c -->\n <r:CheckResponse xmlns:r='u'/><X/>")},
         "KORA_CheckResponse"},
        {{.body = soap11Envelope(std::string("<f:Fault xmlns:f='") + kSoap11Namespace + "'/>")},
         ""},
        {{.body = "<Envelope/>"}, "absent"},
        {{.contentType = "text/html", .body = "<html/>"}, mimeError("text/html")},
        {{.status = 404, .contentType = "text/html"}, httpError(404, "Not Found")},
        {{.contentType = "application/soap+xml", .body = kCheckResponse},
         mimeError("application/soap+xml")},
        {{.contentType = "", .body = kCheckResponse}, mimeError("(null)")},
        {{.body = "this is not <xml"}, kXmlError},
        {{.body = "<!DOCTYPE e [<!ENTITY x 'y'>]><e>&x;</e>"}, kXmlError},
        {{.body = ""}, kXmlError},
        {{.body = fullBody}, "KORA_CheckResponse"},
        {{.body = bigBody}, tooBig},
        {{.body = bigBody, .chunked = true}, tooBig},
    };
    for (const auto& [reply, expected] : cases) {
        server_.answerAlways(reply);
        EXPECT_EQ(outcome(*binding()->CheckUsingParameters(KORA_Check())), expected)
            << reply.contentType << " " << reply.body.substr(0, 60);
    }
}

TEST_F(SoapExchange, TransportFailuresArePassedOnUnchanged) {
    server_.answerAlways({.body = kCheckResponse, .delayMs = 2500});
    auto slow = binding();
    slow->setDefaultTimeout(0.5);
    const auto timedOut = slow->CheckUsingParameters(KORA_Check());
    EXPECT_EQ(timedOut->error()->domain, "g-io-error-quark");
    EXPECT_EQ(timedOut->error()->code, G_IO_ERROR_TIMED_OUT);
    EXPECT_FALSE(timedOut->bodyParts());

    for (const char* address : {"not a url", "ftp://127.0.0.1/x", ""}) {
        auto binding = std::make_shared<KORASoap12Binding>(address);
        const auto response = binding->CheckUsingParameters(KORA_Check());
        ASSERT_TRUE(response->error()) << address;
        EXPECT_EQ(response->error()->code, G_IO_ERROR_INVALID_ARGUMENT) << address;
    }
}

// libsoup's time-out measures only inactivity; the deadline (here 2 s) ends a trickling reply.
TEST_F(SoapExchange, AReplyStillTricklingAtTheDeadlineEndsAsTimedOut) {
    auto binding = this->binding();
    EXPECT_EQ(binding->exchangeDeadline(), kExchangeDeadline);
    binding->setExchangeDeadline(std::chrono::seconds(2));
    binding->setDefaultTimeout(1);
    // Four pieces 100 ms apart: complete well before the deadline.
    server_.answerAlways(
        {.body = kCheckResponse, .trickleMs = 100, .trickleBytes = kCheckResponse.size() / 4 + 1});
    EXPECT_EQ(outcome(*binding->CheckUsingParameters(KORA_Check())), "KORA_CheckResponse");
    // A byte every 200 ms for 8 s: never quiet for the 1-second time-out.
    server_.answerAlways({.body = std::string(40, ' '), .trickleMs = 200});
    const auto trickled = binding->CheckUsingParameters(KORA_Check());

    binding->setExchangeDeadline(std::chrono::milliseconds(0));
    server_.answerAlways({.body = kCheckResponse, .delayMs = 2500});
    const auto stalled = binding->CheckUsingParameters(KORA_Check());
    ASSERT_TRUE(trickled->error());
    ASSERT_TRUE(stalled->error());
    EXPECT_EQ(trickled->error()->text(), stalled->error()->text());
    EXPECT_EQ(trickled->error()->text(), exchangeTimedOutError().text());
    EXPECT_FALSE(trickled->bodyParts());
}

gboolean recordBasicAuth(SoupAuthDomain*, SoupServerMessage*, const char* user,
                         const char* password, gpointer offered) {
    static_cast<std::vector<std::string>*>(offered)->push_back(std::string(user) + ":" + password);
    return g_str_equal(password, "right");
}

TEST_F(SoapExchange, CredentialsAreOfferedOnceAndASecondChallengeEndsTheCall) {
    SoupAuthDomain* domain = soup_auth_domain_basic_new("realm", "kora", nullptr);
    soup_auth_domain_add_path(domain, "/");
    std::vector<std::string> offered;
    soup_auth_domain_basic_set_auth_callback(domain, recordBasicAuth, &offered, nullptr);
    soup_server_add_auth_domain(server_.server(), domain);
    g_object_unref(domain);
    server_.answerAlways({.body = kCheckResponse});

    EXPECT_EQ(outcome(*binding("user", "right")->CheckUsingParameters(KORA_Check())),
              "KORA_CheckResponse");
    EXPECT_EQ(outcome(*binding("user", "wrong")->CheckUsingParameters(KORA_Check())),
              "Error Domain=Connection Authentication Code=0 \"Authentication Error\"");
    EXPECT_EQ(offered, (std::vector<std::string>{"user:right", "user:wrong"}));
}

TEST_F(SoapExchange, EachReplyReplacesTheCookiesThatTheNextRequestSends) {
    auto binding = this->binding();
    server_.answerAlways(
        {.body = kCheckResponse, .headers = {{"Set-Cookie", "session=abc; Path=/"}}});
    binding->CheckUsingParameters(KORA_Check());
    EXPECT_EQ(binding->cookies(), (std::vector<HttpCookie>{{"session", "abc", "127.0.0.1", "/"}}));

    server_.answerAlways({.body = kCheckResponse});
    binding->CheckUsingParameters(KORA_Check());
    EXPECT_EQ(server_.requests.back().headers["Cookie"], "session=abc");
    EXPECT_EQ(binding->cookies(), std::vector<HttpCookie>{});

    binding->addCookie(HttpCookie{"a", "1", "", ""});
    binding->addCookie(std::nullopt);
    binding->addCookie(HttpCookie{"b", "2", "", ""});
    binding->CheckUsingParameters(KORA_Check());
    EXPECT_EQ(server_.requests.back().headers["Cookie"], "a=1; b=2");
}

struct CountingDelegate : KORASoap12BindingResponseDelegate {
    void operation(KORASoapBindingOperation&,
                   const std::shared_ptr<KORASoapBindingResponse>& response) override {
        ++calls;
        last = response;
    }
    int calls = 0;
    std::shared_ptr<KORASoapBindingResponse> last;
};

TEST_F(SoapExchange, AnAsynchronousCallTellsItsDelegateOnceFromTheMainLoop) {
    for (const char* body : {"not xml", ""}) {
        server_.answerAlways({.body = body});
        CountingDelegate delegate;
        binding()->InstallErrorAsyncUsingParameters(KORA_InstallError(), &delegate);
        EXPECT_EQ(delegate.calls, 0);
        spinUntil([&] { return delegate.calls > 0; });
        bool waited = false;  // long enough for a second, wrong call to arrive
        g_timeout_add_once(
            50, [](gpointer flag) { *static_cast<bool*>(flag) = true; }, &waited);
        spinUntil([&] { return waited; });
        EXPECT_EQ(delegate.calls, 1);
        EXPECT_EQ(delegate.last->error()->domain, "KORASoap12BindingResponseXML");
    }
}

TEST_F(SoapExchange, WithLoggingOnTheExchangeIsTracedToTheDiagnosticLog) {
    std::vector<std::string> lines;
    setLogSink([&](LogChannel channel, int, const std::string& text) {
        if (channel == LogChannel::Diagnostic) lines.push_back(text.substr(0, text.find('\n')));
    });
    server_.answerAlways({.body = kCheckResponse});
    auto binding = this->binding();
    binding->CheckUsingParameters(KORA_Check());
    EXPECT_TRUE(lines.empty());
    binding->setLogXMLInOut(true);
    binding->CheckUsingParameters(KORA_Check());
    server_.answerAlways({.contentType = "text/html"});
    binding->CheckUsingParameters(KORA_Check());
    setLogSink(nullptr);
    EXPECT_EQ(lines, (std::vector<std::string>{
                         "OutputHeaders:", "OutputBody:", "ResponseStatus: 200", "ResponseHeaders:",
                         "ResponseBody:", "OutputHeaders:", "OutputBody:", "ResponseStatus: 200",
                         "ResponseHeaders:", "ResponseError:"}));
}

TEST_F(SoapExchange, TheFactoriesMakeBindingsOfTheirKindForTheBuiltInOrAGivenAddress) {
    const std::string builtIn = "https://" KORA_SERVICE_HOST "/telso/cm/webservices/kora2.asmx";
    EXPECT_EQ(KORA::KORASoap12Binding()->address(), builtIn);
    EXPECT_EQ(KORA::KORASoapBinding()->address(), builtIn);
    server_.answerAlways({.contentType = "text/plain"});
    EXPECT_EQ(KORA::KORASoapBinding(server_.url())
                  ->UninstallUsingParameters(KORA_Uninstall())
                  ->error()
                  ->domain,
              "KORASoapBindingResponseHTTP");
    EXPECT_EQ(KORA::KORASoap12Binding(server_.url())
                  ->UninstallUsingParameters(KORA_Uninstall())
                  ->error()
                  ->domain,
              "KORASoap12BindingResponseHTTP");
}

// A reply body is traced whole, line breaks kept; only controls that could drive a terminal are escaped.
TEST(AnExchangeTrace, KeepsTheReplyBodyWholeWithItsLineBreaks) {
    std::string body = "<?xml version=\"1.0\"?>\r\n<junk>";
    std::string traced = "<?xml version=\"1.0\"?>\\r\n<junk>";
    while (body.size() <= 4 * kMaxLoggedTextBytes) {
        body += std::string("\tline\x1b[2J\0\n", 11);
        traced += "\tline\\x1b[2J\\x00\n";
    }
    LoopbackSoapServer server;
    server.answerAlways({.body = body});
    std::vector<std::string> traces;
    setLogSink([&](LogChannel, int, const std::string& text) { traces.push_back(text); });
    auto binding = std::make_shared<KORASoap12Binding>(server.url());
    binding->setLogXMLInOut(true);
    binding->CheckUsingParameters(KORA_Check());
    setLogSink({});
    EXPECT_NE(std::find(traces.begin(), traces.end(), "ResponseBody:\n" + traced), traces.end());
}

// A synchronous call that starts `nested` from a timer 50 ms into its wait.
struct NestedCall {
    const char* name;
    NestedCall* nested;
    std::shared_ptr<KORASoap12Binding> binding;
    std::vector<std::string>* finished;
    const int* ticks;  // counted by a timer of its own
    int ticksDuringCall = 0;
};

void makeCall(NestedCall* call) {
    if (call->nested != nullptr) {
        g_timeout_add_once(
            50, [](gpointer nested) { makeCall(static_cast<NestedCall*>(nested)); }, call->nested);
    }
    KORA_Check check;
    check.setInstallationID(call->name);
    const int ticksBefore = *call->ticks;
    const auto response = call->binding->CheckUsingParameters(check);
    call->ticksDuringCall = *call->ticks - ticksBefore;
    call->finished->push_back(std::string(call->name) + ":" + outcome(*response));
}

TEST_F(SoapExchange, SynchronousCallsFromTimersNestWhileOtherSourcesRun) {
    server_.respond = [](const ReceivedRequest& request) {
        const bool outer = request.body.find("outer") != std::string::npos;
        const bool middle = request.body.find("middle") != std::string::npos;
        return ScriptedReply{.body = kCheckResponse, .delayMs = outer ? 400u : middle ? 200u : 0u};
    };
    int ticks = 0;
    const guint ticker = g_timeout_add(
        20,
        [](gpointer count) -> gboolean {
            ++*static_cast<int*>(count);
            return G_SOURCE_CONTINUE;
        },
        &ticks);
    const auto shared = binding();  // outer and middle wait on the same binding
    std::vector<std::string> finished;
    NestedCall inner{"inner", nullptr, binding(), &finished, &ticks};
    NestedCall middle{"middle", &inner, shared, &finished, &ticks};
    NestedCall outer{"outer", &middle, shared, &finished, &ticks};
    makeCall(&outer);
    g_source_remove(ticker);
    EXPECT_EQ(finished,
              (std::vector<std::string>{"inner:KORA_CheckResponse", "middle:KORA_CheckResponse",
                                        "outer:KORA_CheckResponse"}));
    EXPECT_GE(middle.ticksDuringCall, 3);  // the call made from a timer let the ticker run
}

}  // namespace
}  // namespace kora
