// The daemon's shutdown ends every service exchange for good, so this file
// holds one test: each integration test file is a process of its own.

#include <glib.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "controller/kora_controller.h"
#include "platform/logging.h"
#include "platform/property_list.h"
#include "platform/http_exchange.h"
#include "soap/soap_update_service.h"
#include "support/controller_platform.h"
#include "support/loopback_soap_server.h"
#include "support/temp_dir.h"

namespace kora {
namespace {

using namespace testing_support;

TEST(Shutdown, EndsTheNoticeInFlightAndFailsEveryLaterExchangeWithoutSendingIt) {
    LoopbackSoapServer server;
    // A byte every 200 ms for 200 s: only the shutdown ends it before the deadline.
    server.answerAlways({.body = std::string(1000, ' '), .trickleMs = 200});
    SoapUpdateService service(server.url());
    std::vector<std::string> errors;
    setLogSink([&](LogChannel, int, const std::string& text) {
        if (text.starts_with("ResponseError:\n")) errors.push_back(text.substr(15));
    });
    TempDir temp;
    const auto registry = temp.path() / "com.olvara.korad.plist";
    test::ControllerPlatform platform(temp.path());
    KoraController controller{platform.settings(registry), service, platform.installer()};
    controller.registerClientWith("com.a", "inst-a", "prod-a", "1.0", "/A.app", "B");

    // As SIGTERM does in the daemon, while the notice's reply trickles in.
    g_timeout_add_once(
        500, [](gpointer c) { static_cast<KoraController*>(c)->beginShutdown(); }, &controller);
    EXPECT_FALSE(controller.shuttingDown());
    EXPECT_TRUE(controller.uninstall("com.a"));
    EXPECT_TRUE(controller.shuttingDown());
    EXPECT_EQ(errors, std::vector<std::string>{exchangeCancelledError().text()});
    EXPECT_EQ(readPropertyListDictionary(registry)->dictionary("KoraDB")->dictionary("com.a"),
              nullptr);

    const std::size_t sent = server.requests.size();
    const auto later = service.check(KORA_Check());
    ASSERT_TRUE(later.error);
    EXPECT_EQ(*later.error, exchangeCancelledError());
    EXPECT_FALSE(later.hasBodyParts);
    EXPECT_EQ(server.requests.size(), sent);
    setLogSink({});
}

}  // namespace
}  // namespace kora
