#include <gio/gio.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "platform/logging.h"
#include "services/kora.h"
#include "services/service_settings.h"
#include "services/soap_binding.h"
#include "services/soap_binding_operation.h"
#include "support/loopback_soap_server.h"

namespace kora {
namespace {

using testing_support::LoopbackSoapServer;
using testing_support::ReceivedRequest;
using testing_support::ScriptedReply;

constexpr const char* kSoap11 = "http://schemas.xmlsoap.org/soap/envelope/";

std::string soap11Envelope(const std::string& body) {
    return std::string("<?xml version=\"1.0\" encoding=\"utf-8\"?><soap:Envelope xmlns:soap=\"") +
           kSoap11 + "\"><soap:Body>" + body + "</soap:Body></soap:Envelope>";
}

const std::string kCheckResponse = soap11Envelope(
    "<CheckResponse xmlns=\"http://kora.olvara.com/ns/KORA\"><CheckResult>"
    "<UpdateID>u-1</UpdateID></CheckResult></CheckResponse>");

// The body parts in short: record type names, "Fault:<faultcode>", or "absent".
std::string partsSummary(const KORASoapBindingResponse& response) {
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

std::string errorSummary(const KORASoapBindingResponse& response) {
    return response.error() ? response.error()->text() : "none";
}

KORA_Check checkFor(const char* installationID) {
    KORA_Check check;
    check.setInstallationID(installationID);
    check.setVersion("1.0");
    return check;
}

class SoapExchange : public testing::Test {
  protected:
    std::shared_ptr<KORASoap12Binding> binding() {
        return std::make_shared<KORASoap12Binding>(server_.url());
    }
    void answerWith(ScriptedReply reply) {
        server_.respond = [reply](const ReceivedRequest&) { return reply; };
    }
    static void spinUntil(const std::function<bool()>& done) {
        while (!done()) g_main_context_iteration(nullptr, TRUE);
    }
    static void spinFor(unsigned ms) {
        bool elapsed = false;
        g_timeout_add(
            ms,
            [](gpointer flag) -> gboolean {
                *static_cast<bool*>(flag) = true;
                return G_SOURCE_REMOVE;
            },
            &elapsed);
        spinUntil([&] { return elapsed; });
    }

    LoopbackSoapServer server_;
};

TEST_F(SoapExchange, SendsTheEnvelopeWithTheRequestHeaders) {
    answerWith({.body = kCheckResponse});
    const auto response = binding()->CheckUsingParameters(checkFor("inst-1"));
    ASSERT_EQ(server_.requests.size(), 1u);
    const ReceivedRequest& request = server_.requests[0];
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.path, "/telso/cm/webservices/kora2.asmx");
    EXPECT_EQ(request.body,
              KORASoap12Binding_envelope::sharedInstance().serializedFormUsingHeaderElements(
                  {}, {{"Check", &static_cast<const KORA_Check&>(checkFor("inst-1"))}}));
    // Accept-Encoding and Connection are libsoup's own.
    const std::map<std::string, std::string> expected{
        {"User-Agent", "Tarvo/0.2 OSX"},
        {"SOAPAction", "http://kora.olvara.com/ns/KORA/Check"},
        {"Content-Type", "text/xml; charset=utf-8"},
        {"Content-Length", std::to_string(request.body.size())},
        {"Host", "127.0.0.1"},
        {"Accept-Encoding", "gzip, deflate"},
        {"Connection", "Keep-Alive"},
    };
    EXPECT_EQ(request.headers, expected);
    EXPECT_EQ(partsSummary(*response), "KORA_CheckResponse");
    EXPECT_EQ(errorSummary(*response), "none");
}

struct ReplyCase {
    const char* name;
    ScriptedReply reply;
    std::string parts;
    std::string error;
};

TEST_F(SoapExchange, RepliesBecomeBodyPartsOrErrors) {
    const std::string bigBody(kMaxReplyBodyBytes + 1, ' ');
    const ReplyCase cases[] = {
        {"SOAP 1.1 fault with status 500",
         {.status = 500,
          .body = soap11Envelope("<soap:Fault><faultcode>soap:Server</faultcode>"
                                 "<faultstring>Boom</faultstring></soap:Fault>")},
         "Fault:soap:Server",
         "none"},
        {"SOAP 1.2 fault",
         {.status = 500,
          .body = "<e:Envelope xmlns:e='http://www.w3.org/2003/05/soap-envelope'><e:Body>"
                  "<e:Fault><e:Code><e:Value>e:Receiver</e:Value></e:Code><e:Reason>"
                  "<e:Text>Bad input</e:Text></e:Reason></e:Fault></e:Body></e:Envelope>"},
         "Fault:e:Receiver",
         "none"},
        {"whitespace and comments in Body",
         {.body = soap11Envelope("\n  <!-- note -->\n  <r:CheckResponse xmlns:r='urn:any'/>\n"
                                 "  <Unrelated/>\n")},
         "KORA_CheckResponse",
         "none"},
        {"Fault with another prefix than Body",
         {.body = soap11Envelope(std::string("<f:Fault xmlns:f='") + kSoap11 + "'/>")},
         "",
         "none"},
        {"no Body element", {.body = "<Envelope/>"}, "absent", "none"},
        {"text/html at 200",
         {.contentType = "text/html", .body = "<html/>"},
         "absent",
         "Error Domain=KORASoap12BindingResponseHTTP Code=1 "
         "\"Unexpected response MIME type to SOAP call:text/html\""},
        {"text/html at 404",
         {.status = 404, .contentType = "text/html", .body = "<html/>"},
         "absent",
         "Error Domain=KORASoap12BindingResponseHTTP Code=404 \"Not Found\""},
        {"application/soap+xml",
         {.contentType = "application/soap+xml", .body = kCheckResponse},
         "absent",
         "Error Domain=KORASoap12BindingResponseHTTP Code=1 "
         "\"Unexpected response MIME type to SOAP call:application/soap+xml\""},
        {"no content type",
         {.contentType = "", .body = kCheckResponse},
         "absent",
         "Error Domain=KORASoap12BindingResponseHTTP Code=1 "
         "\"Unexpected response MIME type to SOAP call:(null)\""},
        {"a body that is not XML",
         {.body = "this is not <xml"},
         "absent",
         "Error Domain=KORASoap12BindingResponseXML Code=1 \"Errors while parsing returned XML\""},
        {"a document type declaration",
         {.body = "<!DOCTYPE e [<!ENTITY x 'y'>]><e>&x;</e>"},
         "absent",
         "Error Domain=KORASoap12BindingResponseXML Code=1 \"Errors while parsing returned XML\""},
        {"no body at all",
         {.body = ""},
         "absent",
         "Error Domain=KORASoap12BindingResponseXML Code=1 \"Errors while parsing returned XML\""},
        {"over the size cap with a length",
         {.body = bigBody},
         "absent",
         "Error Domain=KORASoap12BindingResponseHTTP Code=2 \"Reply body larger than 4194304 "
         "bytes\""},
        {"over the size cap in chunks",
         {.body = bigBody, .chunked = true},
         "absent",
         "Error Domain=KORASoap12BindingResponseHTTP Code=2 \"Reply body larger than 4194304 "
         "bytes\""},
    };
    for (const ReplyCase& c : cases) {
        answerWith(c.reply);
        const auto response = binding()->CheckUsingParameters(KORA_Check());
        EXPECT_EQ(partsSummary(*response), c.parts) << c.name;
        EXPECT_EQ(errorSummary(*response), c.error) << c.name;
    }
}

TEST_F(SoapExchange, TheSoap11BindingReportsInItsOwnDomains) {
    answerWith({.contentType = "text/plain"});
    auto binding = std::make_shared<KORASoapBinding>(server_.url());
    EXPECT_EQ(binding->UninstallUsingParameters(KORA_Uninstall())->error()->domain,
              "KORASoapBindingResponseHTTP");
}

TEST_F(SoapExchange, TransportFailuresArePassedOnUnchanged) {
    answerWith({.body = kCheckResponse, .delayMs = 2500});
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

TEST_F(SoapExchange, CredentialsAreOfferedOnceAndASecondChallengeEndsTheCall) {
    SoupAuthDomain* domain = soup_auth_domain_basic_new("realm", "kora", nullptr);
    soup_auth_domain_add_path(domain, "/");
    std::vector<std::string> offered;
    soup_auth_domain_basic_set_auth_callback(
        domain,
        [](SoupAuthDomain*, SoupServerMessage*, const char* user, const char* password,
           gpointer data) -> gboolean {
            static_cast<std::vector<std::string>*>(data)->push_back(std::string(user) + ":" +
                                                                    password);
            return g_str_equal(password, "right");
        },
        &offered, nullptr);
    soup_server_add_auth_domain(server_.server(), domain);
    g_object_unref(domain);
    answerWith({.body = kCheckResponse});

    auto accepted = binding();
    accepted->setAuthUsername("user");
    accepted->setAuthPassword("right");
    EXPECT_EQ(partsSummary(*accepted->CheckUsingParameters(KORA_Check())), "KORA_CheckResponse");

    auto refused = binding();
    refused->setAuthUsername("user");
    refused->setAuthPassword("wrong");
    const auto response = refused->CheckUsingParameters(KORA_Check());
    EXPECT_EQ(errorSummary(*response),
              "Error Domain=Connection Authentication Code=0 \"Authentication Error\"");
    EXPECT_EQ(offered, (std::vector<std::string>{"user:right", "user:wrong"}));
}

TEST_F(SoapExchange, EachReplyReplacesTheCookiesThatTheNextRequestSends) {
    auto binding = this->binding();
    answerWith({.body = kCheckResponse, .headers = {{"Set-Cookie", "session=abc; Path=/"}}});
    binding->CheckUsingParameters(KORA_Check());
    ASSERT_TRUE(binding->cookies());
    EXPECT_EQ(*binding->cookies(), (std::vector<HttpCookie>{{"session", "abc", "127.0.0.1", "/"}}));

    answerWith({.body = kCheckResponse});
    binding->CheckUsingParameters(KORA_Check());
    EXPECT_EQ(server_.requests.back().headers["Cookie"], "session=abc");
    EXPECT_EQ(binding->cookies(), std::vector<HttpCookie>{});

    binding->addCookie(HttpCookie{"a", "1", "", ""});
    binding->addCookie(std::nullopt);
    binding->addCookie(HttpCookie{"b", "2", "", ""});
    binding->CheckUsingParameters(KORA_Check());
    EXPECT_EQ(server_.requests.back().headers["Cookie"], "a=1; b=2");
}

class CountingDelegate : public KORASoap12BindingResponseDelegate {
  public:
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
        answerWith({.body = body});
        CountingDelegate delegate;
        binding()->InstallErrorAsyncUsingParameters(KORA_InstallError(), &delegate);
        EXPECT_EQ(delegate.calls, 0);
        spinUntil([&] { return delegate.calls > 0; });
        spinFor(50);
        EXPECT_EQ(delegate.calls, 1);
        EXPECT_EQ(delegate.last->error()->domain, "KORASoap12BindingResponseXML");
    }
}

TEST_F(SoapExchange, WithLoggingOnTheExchangeIsTracedToTheDiagnosticLog) {
    std::vector<std::string> lines;
    setLogSink([&](LogChannel channel, int, const std::string& text) {
        if (channel == LogChannel::Diagnostic) lines.push_back(text.substr(0, text.find('\n')));
    });
    answerWith({.body = kCheckResponse});
    auto binding = this->binding();
    binding->CheckUsingParameters(KORA_Check());
    EXPECT_TRUE(lines.empty());
    binding->setLogXMLInOut(true);
    binding->CheckUsingParameters(KORA_Check());
    answerWith({.contentType = "text/html"});
    binding->CheckUsingParameters(KORA_Check());
    setLogSink(nullptr);
    EXPECT_EQ(lines, (std::vector<std::string>{
                         "OutputHeaders:", "OutputBody:", "ResponseStatus: 200", "ResponseHeaders:",
                         "ResponseBody:", "OutputHeaders:", "OutputBody:", "ResponseStatus: 200",
                         "ResponseHeaders:", "ResponseError:"}));
}

TEST_F(SoapExchange, TheFactoriesUseTheConfiguredAddress) {
    unsetenv("KORAD_SERVICE_ADDRESS");
    EXPECT_EQ(KORA::KORASoap12Binding()->address(),
              "https://kora.olvara.com/telso/cm/webservices/kora2.asmx");
    setenv("KORAD_SERVICE_ADDRESS", server_.url().c_str(), 1);
    EXPECT_EQ(KORA::KORASoapBinding()->address(), server_.url());
    unsetenv("KORAD_SERVICE_ADDRESS");
}

// Replies to "outer", "middle" and "inner" come after 400, 200 and 0 ms.
ScriptedReply delayedByName(const ReceivedRequest& request) {
    ScriptedReply reply{.body = kCheckResponse};
    if (request.body.find("outer") != std::string::npos) reply.delayMs = 400;
    if (request.body.find("middle") != std::string::npos) reply.delayMs = 200;
    return reply;
}

// A synchronous call that, 50 ms into its wait, starts `nested` from a timer.
struct NestedCall {
    std::shared_ptr<KORASoap12Binding> binding;
    const char* name;
    NestedCall* nested;
    std::vector<std::string>* finished;
};

void makeCall(NestedCall* call) {
    if (call->nested != nullptr) {
        g_timeout_add(
            50,
            [](gpointer nested) -> gboolean {
                makeCall(static_cast<NestedCall*>(nested));
                return G_SOURCE_REMOVE;
            },
            call->nested);
    }
    const auto response = call->binding->CheckUsingParameters(checkFor(call->name));
    call->finished->push_back(std::string(call->name) + ":" + partsSummary(*response));
}

TEST_F(SoapExchange, SynchronousCallsNestAndEachEndsAfterTheOnesItContains) {
    server_.respond = delayedByName;
    const auto shared = binding();  // outer and middle wait on the same binding
    std::vector<std::string> finished;
    NestedCall inner{binding(), "inner", nullptr, &finished};
    NestedCall middle{shared, "middle", &inner, &finished};
    NestedCall outer{shared, "outer", &middle, &finished};
    makeCall(&outer);
    EXPECT_EQ(finished,
              (std::vector<std::string>{"inner:KORA_CheckResponse", "middle:KORA_CheckResponse",
                                        "outer:KORA_CheckResponse"}));
}

TEST_F(SoapExchange, ASynchronousCallFromATimerLetsOtherSourcesRunWhileItWaits) {
    server_.respond = delayedByName;
    struct State {
        std::shared_ptr<KORASoap12Binding> binding;
        int ticks = 0;
        int ticksDuringCall = -1;
    } state{binding()};
    const guint ticker = g_timeout_add(
        20,
        [](gpointer data) -> gboolean {
            ++static_cast<State*>(data)->ticks;
            return G_SOURCE_CONTINUE;
        },
        &state);
    g_timeout_add(
        10,
        [](gpointer data) -> gboolean {
            auto* s = static_cast<State*>(data);
            const int before = s->ticks;
            s->binding->CheckUsingParameters(checkFor("middle"));
            s->ticksDuringCall = s->ticks - before;
            return G_SOURCE_REMOVE;
        },
        &state);
    spinUntil([&] { return state.ticksDuringCall >= 0; });
    g_source_remove(ticker);
    EXPECT_GE(state.ticksDuringCall, 3);
}

}  // namespace
}  // namespace kora
