#include <glib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "controller/kora_controller.h"
#include "platform/logging.h"
#include "platform/property_list.h"
#include "support/loopback_soap_server.h"
#include "support/temp_dir.h"

namespace kora {
namespace {

using testing_support::LoopbackSoapServer;
using testing_support::ReceivedRequest;
using testing_support::ScriptedReply;

std::string soap11Envelope(const std::string& body) {
    return "<soap:Envelope xmlns:soap='http://schemas.xmlsoap.org/soap/envelope/'><soap:Body>" +
           body + "</soap:Body></soap:Envelope>";
}

class UninstallNotice : public testing::Test {
  protected:
    UninstallNotice() {
        setenv("KORAD_SERVICE_ADDRESS", server_.url().c_str(), 1);
        setLogSink([this](LogChannel channel, int, const std::string& text) {
            if (channel == LogChannel::System) lines_.push_back(text);
        });
        controller_ = std::make_unique<KoraController>(KoraControllerSettings{
            registry(), temp_.path() / "Preferences",
            std::make_shared<LiveWorkspace>(temp_.path() / "Applications"), std::chrono::hours(1)});
        controller_->registerClientWith("com.a", "inst-a", "prod-a", "1.0", "/A.app", "B");
    }
    ~UninstallNotice() override {
        setLogSink({});
        unsetenv("KORAD_SERVICE_ADDRESS");
    }

    std::filesystem::path registry() const { return temp_.path() / "com.olvara.korad.plist"; }
    bool registered(const char* identifier) const {
        return readPropertyListDictionary(registry())
                   ->dictionary("KoraDB")
                   ->dictionary(identifier) != nullptr;
    }
    long notices() const {
        return std::count(lines_.begin(), lines_.end(), "Successfully notified KORA Server");
    }

    TempDir temp_;
    LoopbackSoapServer server_;
    std::vector<std::string> lines_;
    std::unique_ptr<KoraController> controller_;
};

TEST_F(UninstallNotice, TellsTheServiceBeforeTheApplicationIsForgotten) {
    bool registeredWhileNotified = false;
    server_.respond = [&](const ReceivedRequest&) {
        registeredWhileNotified = registered("com.a");
        return ScriptedReply{.body = soap11Envelope("<UninstallResponse xmlns='urn:k'/>"),
                             .delayMs = 200};
    };
    // A client call served while the notice waits for the service.
    g_timeout_add(
        50,
        [](gpointer controller) -> gboolean {
            static_cast<KoraController*>(controller)->setRoaming(true);
            return G_SOURCE_REMOVE;
        },
        controller_.get());

    EXPECT_TRUE(controller_->uninstall("com.a"));
    ASSERT_EQ(server_.requests.size(), 1u);
    const std::string& body = server_.requests[0].body;
    EXPECT_NE(body.find("<KORA:Uninstall>\n      <KORA:InstallationID>inst-a</KORA:InstallationID>"
                        "\n      <KORA:ProductID>prod-a</KORA:ProductID>"),
              std::string::npos)
        << body;
    EXPECT_EQ(server_.requests[0].headers["SOAPAction"],
              "http://kora.olvara.com/ns/KORA/Uninstall");
    EXPECT_TRUE(registeredWhileNotified);
    EXPECT_TRUE(controller_->isModemRoaming());
    EXPECT_EQ(notices(), 1);
    EXPECT_FALSE(registered("com.a"));
}

TEST_F(UninstallNotice, RemovesTheApplicationWhateverTheServiceAnswers) {
    const ScriptedReply replies[] = {
        {.status = 500,
         .body = soap11Envelope("<soap:Fault><faultcode>soap:Server</faultcode></soap:Fault>")},
        {.contentType = "text/html", .body = "<html/>"},
        {.body = soap11Envelope("<CheckResponse/>")},
    };
    for (const ScriptedReply& reply : replies) {
        controller_->registerClientWith("com.a", "inst-a", "prod-a", "1.0", "/A.app", "B");
        server_.respond = [reply](const ReceivedRequest&) { return reply; };
        EXPECT_TRUE(controller_->uninstall("com.a"));
        EXPECT_FALSE(registered("com.a")) << reply.body;
    }
    setenv("KORAD_SERVICE_ADDRESS", "http://127.0.0.1:9/unreachable", 1);
    controller_->registerClientWith("com.a", "inst-a", "prod-a", "1.0", "/A.app", "B");
    EXPECT_TRUE(controller_->uninstall("com.a"));
    EXPECT_FALSE(registered("com.a"));
    EXPECT_EQ(notices(), 0);
}

TEST_F(UninstallNotice, AnUnknownApplicationIsNotifiedWithoutIdentifiers) {
    server_.respond = [](const ReceivedRequest&) {
        return ScriptedReply{.body = soap11Envelope("<UninstallResponse/>")};
    };
    EXPECT_TRUE(controller_->uninstall("com.unknown"));
    ASSERT_EQ(server_.requests.size(), 1u);
    EXPECT_NE(server_.requests[0].body.find("<KORA:Uninstall/>"), std::string::npos);
    EXPECT_EQ(notices(), 1);
    EXPECT_TRUE(registered("com.a"));
}

}  // namespace
}  // namespace kora
