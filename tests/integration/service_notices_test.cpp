#include <glib.h>
#include <gtest/gtest.h>

#include <string>

#include "controller/kora_controller.h"
#include "dates/stored_date.h"
#include "platform/logging.h"
#include "platform/property_list.h"
#include "soap/soap_update_service.h"
#include "support/controller_platform.h"
#include "support/loopback_soap_server.h"
#include "support/temp_dir.h"

namespace kora {
namespace {

using namespace testing_support;

const std::string kUninstallResponse = soap11Envelope("<UninstallResponse xmlns='urn:k'/>");

// The notices the controller sends, as a real update service on loopback
// receives them.
class ServiceNotices : public testing::Test {
  protected:
    ServiceNotices() {
        setLogSink([this](LogChannel, int, const std::string& text) {
            notices_ += text == "Successfully notified KORA Server";
        });
        controller_.registerClientWith("com.a", "inst-a", "prod-a", "1.0", "/A.app", "B");
    }
    ~ServiceNotices() override { setLogSink({}); }

    // The update of com.a from 1.0 to 2.0, stored as it downloads.
    std::shared_ptr<KoraUpdate> storedUpdate() {
        auto update = std::make_shared<KoraUpdate>();
        update->setIdentifier("com.a");
        update->setUpdateId("upd-1");
        update->setVersionTo("2.0");
        update->setHasStartedDownload(true);
        controller_.db().updateInfoForUpdateWithIdentifier("com.a", update);
        return update;
    }
    bool aIsRegistered() const {
        return readPropertyListDictionary(registry_)->dictionary("KoraDB")->dictionary("com.a") !=
               nullptr;
    }

    TempDir temp_;
    LoopbackSoapServer server_;
    SoapUpdateService service_{server_.url()};
    const std::filesystem::path registry_ = temp_.path() / "com.olvara.korad.plist";
    test::ControllerPlatform platform_{temp_.path()};
    KoraController controller_{platform_.settings(registry_), service_, platform_.installer()};
    int notices_ = 0;
};

TEST_F(ServiceNotices, TellsTheServiceBeforeTheApplicationIsForgottenAndServesCallsMeanwhile) {
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

// The elements of a notice body, one per line as the envelope writes them.
std::string elements(const std::vector<std::pair<std::string, std::string>>& fields) {
    std::string xml;
    for (const auto& [name, value] : fields) {
        xml += "\n      <KORA:" + name + (value.empty() ? "/>" : ">" + value + "</KORA:" + name + ">");
    }
    return xml;
}

TEST_F(ServiceNotices, SendsEveryFieldOfADownloadCompleteNotice) {
    server_.answerAlways({.body = soap11Envelope("<DownloadCompleteResponse xmlns='urn:k'/>")});
    controller_.downloadDidFinishFor(storedUpdate());

    ASSERT_EQ(server_.requests.size(), 1u);
    const ReceivedRequest& request = server_.requests[0];
    EXPECT_EQ(request.headers.at("SOAPAction"),
              "http://kora.olvara.com/ns/KORA/DownloadComplete");
    const std::string time = storedDateText(platform_.clock->time);
    const std::vector<std::pair<std::string, std::string>> fields = {
        {"InstallationID", "inst-a"}, {"UpdateID", "upd-1"},    {"ProductID", "prod-a"},
        {"HardwareUUID", "SERIAL-1"}, {"Username", ""},         {"MobileNo", ""},
        {"CustomerNo", ""},           {"OperatingSystem", "OSXSnowLeopard"},
        {"OSEdition", "10.6"},        {"ServicePack", "8"},     {"OSArchitecture", ""},
        {"SystemType", "ThinkPad X1"}, {"SystemArchitecture", ""}, {"Region", "Europe"},
        {"Country", "FI"},            {"Brand", "B"},           {"Version", "1.0"},
        {"AdditionalInfo", "Status=INSTALLED;"}, {"StartTime", time}, {"FinishTime", time}};
    EXPECT_NE(request.body.find("<KORA:DownloadComplete>" + elements(fields) +
                                "\n    </KORA:DownloadComplete>"),
              std::string::npos)
        << request.body;
    EXPECT_EQ(notices_, 1);
}

}  // namespace
}  // namespace kora
