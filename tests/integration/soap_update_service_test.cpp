#include "soap/soap_update_service.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/logging.h"
#include "support/loopback_soap_server.h"

namespace kora {
namespace {

using namespace testing_support;

const std::string kActionPrefix = "http://kora.olvara.com/ns/KORA/";

// Answers each operation with its own response record, and sets a cookie
// that a binding would send back if it were used again.
ScriptedReply responseRecordFor(const ReceivedRequest& request) {
    const std::string operation = request.headers.at("SOAPAction").substr(kActionPrefix.size());
    const std::string result =
        operation == "Check" ? "<CheckResult><UpdateID>u-1</UpdateID></CheckResult>" : "";
    return {.body = soap11Envelope("<" + operation + "Response xmlns='http://kora.olvara.com/ns/KORA'>" +
                                   result + "</" + operation + "Response>"),
            .headers = {{"Set-Cookie", "session=" + operation + "; Path=/"}}};
}

class ASoapUpdateService : public testing::Test {
  protected:
    ASoapUpdateService() {
        setLogSink([this](LogChannel channel, int, const std::string& text) {
            if (channel == LogChannel::Diagnostic && text.starts_with("OutputBody:")) ++traces_;
        });
    }
    ~ASoapUpdateService() override { setLogSink({}); }

    LoopbackSoapServer server_;
    SoapUpdateService service_{server_.url()};
    int traces_ = 0;
};

// Each row sends one operation and tells whether its expected record came back.
struct Call {
    const char* operation;
    std::function<bool(UpdateService&)> send;
};

const Call kCalls[] = {
    {"Check",
     [](UpdateService& s) {
         const auto reply = s.check(KORA_Check());
         return reply.response && reply.response->CheckResult() &&
                reply.response->CheckResult()->UpdateID() == "u-1";
     }},
    {"DownloadError",
     [](UpdateService& s) { return s.downloadError(KORA_DownloadError()).response.has_value(); }},
    {"InstallError",
     [](UpdateService& s) { return s.installError(KORA_InstallError()).response.has_value(); }},
    {"DownloadComplete",
     [](UpdateService& s) {
         return s.downloadComplete(KORA_DownloadComplete()).response.has_value();
     }},
    {"InstallComplete",
     [](UpdateService& s) {
         return s.installComplete(KORA_InstallComplete()).response.has_value();
     }},
    {"Uninstall",
     [](UpdateService& s) { return s.uninstall(KORA_Uninstall()).response.has_value(); }},
};

TEST_F(ASoapUpdateService, SendsEveryCallOnAFreshTracedBindingSoNoCookieCarriesOver) {
    server_.respond = responseRecordFor;
    for (const Call& call : kCalls) {
        SCOPED_TRACE(call.operation);
        EXPECT_TRUE(call.send(service_));
        const ReceivedRequest& request = server_.requests.back();
        EXPECT_EQ(request.headers.at("SOAPAction"), kActionPrefix + call.operation);
        EXPECT_EQ(request.headers.count("Cookie"), 0u);
    }
    EXPECT_EQ(server_.requests.size(), std::size(kCalls));
    EXPECT_EQ(traces_, static_cast<int>(std::size(kCalls)));
}

TEST_F(ASoapUpdateService, TellsTheExpectedRecordAFaultAnUnknownBodyAndAFailedExchangeApart) {
    struct Row {
        ScriptedReply reply;
        bool hasBodyParts, response, fault;
        std::optional<std::string> errorDomain;
    };
    const std::string fault = soap11Envelope("<soap:Fault><faultcode>x</faultcode></soap:Fault>");
    const Row rows[] = {
        {{.body = soap11Envelope("<UninstallResponse/>")}, true, true, false, std::nullopt},
        {{.status = 500, .body = fault}, true, false, true, std::nullopt},
        {{.body = soap11Envelope("<CheckResponse/>")}, false, false, false, std::nullopt},
        {{.contentType = "text/html", .body = "<html/>"}, false, false, false,
         "KORASoap12BindingResponseHTTP"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.reply.body);
        server_.answerAlways(row.reply);
        const auto reply = service_.uninstall(KORA_Uninstall());
        EXPECT_EQ(reply.hasBodyParts, row.hasBodyParts);
        EXPECT_EQ(reply.response.has_value(), row.response);
        EXPECT_EQ(reply.fault.has_value(), row.fault);
        EXPECT_EQ(reply.fault ? reply.fault->faultcode() : std::nullopt,
                  row.fault ? std::optional<std::string>("x") : std::nullopt);
        EXPECT_EQ(reply.error ? std::optional(reply.error->domain) : std::nullopt, row.errorDomain);
    }
}

}  // namespace
}  // namespace kora
