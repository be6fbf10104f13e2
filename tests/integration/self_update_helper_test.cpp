// The daemon's side of the self-update hand-over: a stand-in helper on a second connection
// of this process answers only if the wait keeps the main context turning.

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "platform/dbus_self_update_helper.h"
#include "platform/pellin_helper_bus_names.h"
#include "support/temp_dir.h"

namespace kora {
namespace {

using namespace std::chrono_literals;

// Answers each call as told, and keeps the arguments it got in GVariant text.
struct StandInHelper {
    enum class Answer { True, False, Error, Never } answer = Answer::True;
    std::vector<std::string> calls;
    std::vector<GDBusMethodInvocation*> unanswered;

    static void handle(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
                       GVariant* parameters, GDBusMethodInvocation* invocation, gpointer self) {
        auto& helper = *static_cast<StandInHelper*>(self);
        g_autofree gchar* text = g_variant_print(parameters, FALSE);
        helper.calls.push_back(text);
        switch (helper.answer) {
            case Answer::True:
            case Answer::False:
                g_dbus_method_invocation_return_value(
                    invocation, g_variant_new("(b)", helper.answer == Answer::True));
                break;
            case Answer::Error:
                g_dbus_method_invocation_return_dbus_error(
                    invocation, "org.freedesktop.DBus.Error.Failed", "disk full");
                break;
            case Answer::Never:
                helper.unanswered.push_back(G_DBUS_METHOD_INVOCATION(g_object_ref(invocation)));
                break;
        }
    }
    ~StandInHelper() {
        for (auto* invocation : unanswered) g_object_unref(invocation);
    }
};

class ASelfUpdateHelper : public testing::Test {
  protected:
    // `activatable`: the bus lists the helper as a service it can start.
    void startBus(bool activatable) {
        bus_ = g_test_dbus_new(G_TEST_DBUS_NONE);
        if (activatable) {
            std::ofstream(services_.path() / "com.olvara.PellinHelper.service")
                << "[D-BUS Service]\nName=com.olvara.PellinHelper\nExec=/bin/false\n";
            g_test_dbus_add_service_dir(bus_, services_.path().c_str());
        }
        g_test_dbus_up(bus_);
        client_ = connect();
    }
    void TearDown() override {
        if (server_ != nullptr) g_dbus_connection_close_sync(server_, nullptr, nullptr);
        g_clear_object(&server_);
        if (client_ != nullptr) g_dbus_connection_close_sync(client_, nullptr, nullptr);
        g_clear_object(&client_);
        if (bus_ != nullptr) g_test_dbus_down(bus_);
        g_clear_object(&bus_);
    }

    GDBusConnection* connect() {
        return g_dbus_connection_new_for_address_sync(
            g_test_dbus_get_bus_address(bus_),
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, nullptr);
    }

    // Serves the stand-in on its own connection, under the helper's name.
    void serveStandIn() {
        server_ = connect();
        static const GDBusInterfaceVTable vtable = {StandInHelper::handle, nullptr, nullptr, {}};
        g_autoptr(GDBusNodeInfo) info = g_dbus_node_info_new_for_xml(kPellinHelperIntrospection, nullptr);
        ASSERT_NE(g_dbus_connection_register_object(server_, kPellinHelperObjectPath,
                                                    info->interfaces[0], &vtable, &standIn_,
                                                    nullptr, nullptr),
                  0u);
        g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
            server_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            "RequestName", g_variant_new("(su)", kPellinHelperBusName, 4u), nullptr,
            G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
        ASSERT_NE(reply, nullptr);
    }

    TempDir services_;
    GTestDBus* bus_ = nullptr;
    GDBusConnection* client_ = nullptr;
    GDBusConnection* server_ = nullptr;
    StandInHelper standIn_;
};

TEST_F(ASelfUpdateHelper, IsPresentOnlyWhenTheBusCanStartIt) {
    startBus(false);
    DBusSelfUpdateHelper helper(client_);
    EXPECT_FALSE(helper.present());
    EXPECT_THROW(helper.installDaemonWithIdentifier("com.olvara.Korad", "/tmp/Upd/korad"),
                 SelfUpdateHelperError);
    TearDown();
    startBus(true);
    EXPECT_TRUE(DBusSelfUpdateHelper(client_).present());
}

TEST_F(ASelfUpdateHelper, SendsBothNullableStringsAndReturnsTheHelpersAnswer) {
    startBus(false);
    serveStandIn();
    DBusSelfUpdateHelper helper(client_);
    EXPECT_TRUE(helper.present());
    EXPECT_TRUE(helper.installDaemonWithIdentifier("com.olvara.Korad", "/tmp/Upd/korad"));
    standIn_.answer = StandInHelper::Answer::False;
    EXPECT_FALSE(helper.installDaemonWithIdentifier("com.olvara.Korad", std::nullopt));
    EXPECT_EQ(standIn_.calls, (std::vector<std::string>{"(['com.olvara.Korad'], ['/tmp/Upd/korad'])",
                                                        "(['com.olvara.Korad'], [])"}));
}

TEST_F(ASelfUpdateHelper, ThrowsWhenTheHelperFailsOrDoesNotAnswerInTime) {
    startBus(false);
    serveStandIn();
    standIn_.answer = StandInHelper::Answer::Error;
    try {
        DBusSelfUpdateHelper(client_).installDaemonWithIdentifier("com.olvara.Korad", "/x");
        ADD_FAILURE() << "an error answer was taken for an answer";
    } catch (const SelfUpdateHelperError& error) {
        EXPECT_NE(std::string(error.what()).find("disk full"), std::string::npos) << error.what();
    }
    standIn_.answer = StandInHelper::Answer::Never;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THROW(DBusSelfUpdateHelper(client_, 300ms).installDaemonWithIdentifier("com.olvara.Korad",
                                                                                  "/x"),
                 SelfUpdateHelperError);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 300ms);
    EXPECT_EQ(standIn_.calls.size(), 2u);
}

}  // namespace
}  // namespace kora
