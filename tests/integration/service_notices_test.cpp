#include <glib.h>
#include <gtest/gtest.h>

#include <string>

#include "controller/kora_controller.h"
#include "platform/logging.h"
#include "platform/property_list.h"
#include "soap/soap_update_service.h"
#include "support/loopback_soap_server.h"
#include "support/temp_dir.h"

namespace kora {
namespace {

using namespace testing_support;

const std::string kUninstallResponse = soap11Envelope("<UninstallResponse xmlns='urn:k'/>");

class UninstallNotice : public testing::Test {
  protected:
    UninstallNotice() {
        setLogSink([this](LogChannel, int, const std::string& text) {
            notices_ += text == "Successfully notified KORA Server";
        });
        registerA();
    }
    ~UninstallNotice() override { setLogSink({}); }

    void registerA() {
        controller_.registerClientWith("com.a", "inst-a", "prod-a", "1.0", "/A.app", "B");
    }
    bool aIsRegistered() const {
        return readPropertyListDictionary(registry_)->dictionary("KoraDB")->dictionary("com.a") !=
               nullptr;
    }

    TempDir temp_;
    LoopbackSoapServer server_;
    SoapUpdateService service_{server_.url()};
    const std::filesystem::path registry_ = temp_.path() / "com.olvara.korad.plist";
    KoraController controller_{
        KoraControllerSettings{registry_, temp_.path() / "Preferences",
                               std::make_shared<LiveWorkspace>(temp_.path() / "Applications"),
                               std::chrono::hours(1)},
        service_};
    int notices_ = 0;
};

TEST_F(UninstallNotice, TellsTheServiceBeforeTheApplicationIsForgottenAndServesCallsMeanwhile) {
    bool registeredWhileNotified = false;
    server_.respond = [&](const ReceivedRequest&) {
        registeredWhileNotified = aIsRegistered();
        return ScriptedReply{.body = kUninstallResponse, .delayMs = 200};
    };
    g_timeout_add_once(
        50, [](gpointer c) { static_cast<KoraController*>(c)->setRoaming(true); }, &controller_);
    EXPECT_TRUE(controller_.uninstall("com.a"));
    const ReceivedRequest& request = server_.requests.at(0);
    EXPECT_EQ(request.headers.at("SOAPAction"), "http://kora.olvara.com/ns/KORA/Uninstall");
    EXPECT_NE(request.body.find("<KORA:Uninstall>\n      <KORA:InstallationID>inst-a"
                                "</KORA:InstallationID>\n      <KORA:ProductID>prod-a<"),
              std::string::npos);
    EXPECT_TRUE(registeredWhileNotified);
    EXPECT_TRUE(controller_.isModemRoaming());
    EXPECT_EQ(notices_, 1);
    EXPECT_FALSE(aIsRegistered());
}

TEST_F(UninstallNotice, RemovesTheApplicationWhateverTheServiceAnswers) {
    const ScriptedReply replies[] = {
        {.status = 500,
         .body = soap11Envelope("<soap:Fault><faultcode>x</faultcode></soap:Fault>")},
        {.contentType = "text/html", .body = "<html/>"},
        {.body = soap11Envelope("<CheckResponse/>")},
    };
    for (const ScriptedReply& reply : replies) {
        registerA();
        server_.answerAlways(reply);
        EXPECT_TRUE(controller_.uninstall("com.a"));
        EXPECT_FALSE(aIsRegistered()) << reply.body;
    }
    EXPECT_EQ(notices_, 0);
}

TEST_F(UninstallNotice, AnUnknownApplicationIsNotifiedWithoutIdentifiers) {
    server_.answerAlways({.body = kUninstallResponse});
    EXPECT_TRUE(controller_.uninstall("com.unknown"));
    EXPECT_NE(server_.requests.at(0).body.find("<KORA:Uninstall/>"), std::string::npos);
    EXPECT_EQ(notices_, 1);
    EXPECT_TRUE(aIsRegistered());
}

}  // namespace
}  // namespace kora
