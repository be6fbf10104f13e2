// The D-Bus adapter serves a recording controller on a private dbus-daemon; the client
// library calls it from a second thread while the main thread serves.

#include <gio/gio.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <stdexcept>
#include <string>
#include <vector>

#include "client/kora_client.h"
#include "controller/kora_controller.h"
#include "daemon/dbus_vending.h"
#include "platform/input_limits.h"
#include "platform/korad_bus_names.h"
#include "platform/nullable_string.h"
#include "support/controller_platform.h"
#include "support/recording_update_service.h"
#include "support/temp_dir.h"

namespace kora {
namespace {

using testing_support::RecordingUpdateService;

std::string show(const OptionalString& text) {
    return text ? "'" + *text + "'" : "<absent>";
}

// Records every call as one line; its answers are ones the adapter cannot make up.
class RecordingController : public VendedController {
  public:
    using S = const OptionalString&;
    // clang-format off
    bool registerClientWith(S a, S b, S c, S d, S e, S f) override { return record("register", {a, b, c, d, e, f}), true; }
    bool updateClient(S a, S b, S c) override { return record("update", {a, b, c}), true; }
    bool setRoaming(bool on) override { return record("setRoaming", {on ? "on" : "off"}), on; }
    void forceCheck() override { record("forceCheck", {}); }
    bool uninstall(S a) override { return record("uninstall", {a}), true; }
    OptionalString registerApplicationWithIdentifier(S a, S b, S c, S d, S e, S f, S g, S h, S i) override {
        return record("registerApplication", {a, b, c, d, e, f, g, h, i}), "token";
    }
    OptionalString echo(S text) override { record("echo", {text}); if (text == "throw") throw std::runtime_error("controller failed"); return text; }
    // clang-format on

    std::vector<std::string> calls;
    std::vector<int> mainDepths;  // g_main_depth() at each call

  private:
    void record(const std::string& name, const std::vector<OptionalString>& args) {
        std::string line = name + "(";
        for (std::size_t i = 0; i < args.size(); ++i) line += (i ? "," : "") + show(args[i]);
        calls.push_back(line + ")");
        mainDepths.push_back(g_main_depth());
    }
};

class DBusApi : public testing::Test {
  protected:
    static void SetUpTestSuite() { g_test_dbus_up(bus_ = g_test_dbus_new(G_TEST_DBUS_NONE)); }
    static void TearDownTestSuite() {
        g_test_dbus_down(bus_);
        g_clear_object(&bus_);
    }

    void SetUp() override {
        server_ = connect();
        ASSERT_NE(server_, nullptr);
        vending_ = std::make_unique<DBusVending>(server_, controller_);
        g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
            server_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            "RequestName", g_variant_new("(su)", kKoradBusName, 4u), nullptr,
            G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
        ASSERT_NE(reply, nullptr);
    }
    void TearDown() override {
        vending_.reset();
        g_dbus_connection_close_sync(server_, nullptr, nullptr);
        g_clear_object(&server_);
    }

    static std::string address() { return g_test_dbus_get_bus_address(bus_); }
    static GDBusConnection* connect() {
        return g_dbus_connection_new_for_address_sync(
            address().c_str(),
            GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                 G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, nullptr);
    }

    // Runs a blocking client call on another thread while this thread turns the main loop.
    template <typename Call>
    static auto served(Call call) {
        auto future = std::async(std::launch::async, call);
        while (future.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready)
            g_main_context_iteration(nullptr, FALSE);
        return future.get();
    }

    // A call with hand-made arguments, bypassing the client library.
    static GVariant* rawCall(const char* interface, const char* member, GVariant* arguments,
                             GError** error) {
        return served([&] {
            g_autoptr(GDBusConnection) c = connect();
            GVariant* reply =
                g_dbus_connection_call_sync(c, kKoradBusName, kKoradObjectPath, interface, member,
                                            arguments, nullptr, G_DBUS_CALL_FLAGS_NONE, -1,
                                            nullptr, error);
            g_dbus_connection_close_sync(c, nullptr, nullptr);
            return reply;
        });
    }
    // The D-Bus error code of a call (arguments in GVariant text), or -1 when it succeeded.
    static int callError(const char* member, GVariant* arguments) {
        g_autoptr(GError) error = nullptr;
        g_autoptr(GVariant) reply = rawCall(kKoradInterface, member, arguments, &error);
        (void)reply;
        return error && error->domain == G_DBUS_ERROR ? error->code : -1;
    }
    static int callError(const char* member, const char* arguments) {
        return callError(member, g_variant_new_parsed(arguments));
    }
    static int callError(const char* member, const std::vector<OptionalString>& texts) {
        std::vector<GVariant*> elements;
        for (const OptionalString& text : texts) elements.push_back(nullableStringVariant(text));
        return callError(member, g_variant_new_tuple(elements.data(), elements.size()));
    }

    // A real controller's settings, on a registry file in a private folder.
    KoraControllerSettings realControllerSettings() const {
        return platform_.settings(registryFolder_.path() / "com.olvara.korad.plist");
    }
    // Serves another controller in place of the recording one.
    void serve(VendedController& controller) {
        vending_.reset();
        vending_ = std::make_unique<DBusVending>(server_, controller);
    }

    static inline GTestDBus* bus_ = nullptr;
    GDBusConnection* server_ = nullptr;
    RecordingController controller_;
    std::unique_ptr<DBusVending> vending_;
    TempDir registryFolder_;
    test::ControllerPlatform platform_{registryFolder_.path()};
};

const char* const kRegisterClient =
    "registerClientWith_installationID_productID_appVersion_bundlePath_appBrand";

TEST_F(DBusApi, EveryOperationReachesTheControllerWithPresentEmptyAndAbsentStrings) {
    const OptionalString no;
    using C = KoraClient&&;
    auto text = [](bool b) { return std::string(b ? "true" : "false"); };
    const struct {
        std::function<std::string(C)> call;  // the answer, as text
        const char* expectedCall;
        const char* expectedAnswer;
    } rows[] = {
        // clang-format off
        {[&](C c) { return text(c.registerClientWith({"id", no, "", "1.0", "/A.app", "B"})); }, "register('id',<absent>,'','1.0','/A.app','B')", "true"},
        {[&](C c) { return text(c.updateClient(no, "/A.app", no)); }, "update(<absent>,'/A.app',<absent>)", "true"},
        {[&](C c) { return text(c.setRoaming(true)); }, "setRoaming('on')", "true"},
        {[&](C c) { return text(c.setRoaming(false)); }, "setRoaming('off')", "false"},
        {[&](C c) { c.forceCheck(); return std::string("none"); }, "forceCheck()", "none"},
        {[&](C c) { return text(c.uninstall(no)); }, "uninstall(<absent>)", "true"},
        {[&](C c) { return show(c.registerApplicationWithIdentifier("i", no, "", "w", "m", "s", "p", "b", no)); }, "registerApplication('i',<absent>,'','w','m','s','p','b',<absent>)", "'token'"},
        {[&](C c) { return show(c.echo("a b\n\xc3\xa4")); }, "echo('a b\n\xc3\xa4')", "'a b\n\xc3\xa4'"},
        {[&](C c) { return show(c.echo("")); }, "echo('')", "''"},
        {[&](C c) { return show(c.echo(no)); }, "echo(<absent>)", "<absent>"},
        // clang-format on
    };
    for (const auto& row : rows) {
        controller_.calls.clear();
        EXPECT_EQ(served([&] { return row.call(KoraClient(address())); }), row.expectedAnswer)
            << row.expectedCall;
        EXPECT_EQ(controller_.calls, std::vector<std::string>{row.expectedCall});
    }
}

TEST_F(DBusApi, WrongArgumentTypesAreRefusedAndChangeNothing) {
    // clang-format off
    const struct { const char* member; const char* arguments; } rows[] = {
        {"echo", "('plain string',)"}, {"echo", "(['one', 'two'],)"}, {"setRoaming", "('on',)"},
        {"setRoaming", "(@as [],)"}, {"uninstall", "(7,)"}, {"forceCheck", "(true,)"},
        {"updateClient_withBundePath_andVersion", "(@as [], @as [])"},
    };
    // clang-format on
    for (const auto& row : rows)
        EXPECT_EQ(callError(row.member, row.arguments), G_DBUS_ERROR_INVALID_ARGS)
            << row.member << row.arguments;
    // Text D-Bus cannot carry is refused by the client, not sent altered.
    for (const std::string& text : {std::string("a\xff"), std::string("a\0b", 3)})
        EXPECT_THROW(served([&] { return KoraClient(address()).echo(text); }), KoraClientError);
    EXPECT_TRUE(controller_.calls.empty());
}

// Each cap passes and one byte more is refused; stored arguments hold only XML 1.0 text.
TEST_F(DBusApi, StringArgumentsAreCappedAndStoredOnesHoldOnlyXmlCharacters) {
    const std::string id(kMaxIdentifierBytes, 'i'), path(kMaxPathBytes, 'p');
    const std::string echo(kMaxEchoBytes, 'e');
    const std::string nonCharacter = "a\xEF\xBF\xBE", control = "a\x01";
    const char* update = "updateClient_withBundePath_andVersion";
    const char* registerApplication =
        "registerApplicationWithIdentifier_usingIccid_imsi_wlanMac_mobileMac_software_"
        "previousVersion_appBrand_bundlePath";
    const int invalid = G_DBUS_ERROR_INVALID_ARGS, ok = -1;
    const struct {
        const char* member;
        std::vector<OptionalString> arguments;
        int expected;
    } rows[] = {
        {kRegisterClient, {id, id, id, id, path, id}, ok},
        {kRegisterClient, {id + "i", "I", "P", "1", "/A.app", "B"}, invalid},
        {kRegisterClient, {"com.a", "I", "P", "1", "/A.app", id + "b"}, invalid},
        {kRegisterClient, {"com.a", "I", "P", "1", path + "p", "B"}, invalid},
        {kRegisterClient, {"com.a", "I", "P", "1", "/A.app", nonCharacter}, invalid},
        {kRegisterClient, {"com.a", "I", "P", "1", "/A\t\xF4\x8F\xBF\xBF.app", "B"}, ok},
        {update, {"com.a", path, id}, ok},
        {update, {"com.a", "/A.app", id + "v"}, invalid},
        {update, {"com.a", control, "1"}, invalid},
        {registerApplication, {id, id, id, id, id, id, id, id, path}, ok},
        {registerApplication, {"i", id + "c", "", "", "", "", "", "", ""}, invalid},
        {registerApplication, {"i", "", "", "", "", "", "", "", path + "p"}, invalid},
        {"uninstall", {nonCharacter}, invalid},
        {"echo", {echo}, ok},
        {"echo", {echo + "e"}, invalid},
        {"echo", {nonCharacter + control}, ok},  // logged and answered, never stored
    };
    std::size_t accepted = 0;
    for (const auto& row : rows) {
        EXPECT_EQ(callError(row.member, row.arguments), row.expected)
            << row.member << " " << show(row.arguments[0]).substr(0, 20);
        accepted += row.expected == ok;
    }
    EXPECT_EQ(controller_.calls.size(), accepted) << "a refused call reached the controller";
}

// A real controller behind the bus: whatever clients send, the next start reads the registry.
TEST_F(DBusApi, RegistrationsSurviveARestartWhateverClientsSent) {
    const KoraControllerSettings settings = realControllerSettings();
    RecordingUpdateService service;  // nothing here reaches the service
    const std::string huge(16 * 1024 * 1024, 'h');
    {
        KoraController controller(settings, service, platform_.installer());
        serve(controller);
        EXPECT_EQ(callError(kRegisterClient, {"com.kept", "I", "P", "1.0", "/Kept.app", "B"}), -1);
        EXPECT_EQ(callError(kRegisterClient, {"com.path", "I", "P", "1.0", huge, "B"}),
                  G_DBUS_ERROR_INVALID_ARGS);
        EXPECT_EQ(callError(kRegisterClient, {huge, "I", "P", "1.0", "/Huge.app", "B"}),
                  G_DBUS_ERROR_INVALID_ARGS);
        vending_.reset();
    }
    KoraController restarted(settings, service, platform_.installer());
    const auto application = restarted.db().registeredApplicationForIdentifier("com.kept");
    ASSERT_NE(application, nullptr);
    EXPECT_EQ(application->bundlePath(), "/Kept.app");
    EXPECT_EQ(restarted.db().registeredApplications().size(), 1u);
}

// Padding makes the file exactly kPlistMaxBytes with com.small: a larger registration is
// refused with LimitsExceeded and changes nothing; the exact fit is written and read back.
TEST_F(DBusApi, ARegistryAtItsSizeCapTakesNoChangeThatWouldPassIt) {
    const KoraControllerSettings settings = realControllerSettings();
    RecordingUpdateService service;  // nothing here reaches the service
    const auto& file = settings.configPath;
    const auto writePadding = [&](std::size_t bytes) {
        PlistDictionary root;
        root.set("Padding", std::string(bytes, 'x'));
        ASSERT_TRUE(writePropertyList(root, file));
    };
    const std::vector<OptionalString> small = {"com.small", "I", "P", "1.0", "/Small.app", "B"};
    writePadding(1);  // an empty string may be written in a shorter form
    {
        KoraDB measure(file, *settings.workspace, settings.preferencesFolder);
        measure.addApplicationWithIdentifier(*small[0], small[1], small[2], small[3], small[4],
                                             small[5]);
    }
    writePadding(1 + kPlistMaxBytes - std::filesystem::file_size(file));
    const auto paddedOnly = std::filesystem::file_size(file);
    {
        KoraController controller(settings, service, platform_.installer());
        serve(controller);
        EXPECT_EQ(callError(kRegisterClient, {"com.larger", "I", "P", "1.0", "/Larger.app", "B"}),
                  G_DBUS_ERROR_LIMITS_EXCEEDED);
        EXPECT_EQ(controller.db().registeredApplicationForIdentifier("com.larger"), nullptr);
        EXPECT_EQ(std::filesystem::file_size(file), paddedOnly);
        EXPECT_EQ(callError(kRegisterClient, small), -1);
        EXPECT_EQ(std::filesystem::file_size(file), kPlistMaxBytes);
        vending_.reset();
    }
    KoraController restarted(settings, service, platform_.installer());
    EXPECT_NE(restarted.db().registeredApplicationForIdentifier("com.small"), nullptr);
}

TEST_F(DBusApi, AControllerFailureBecomesADBusErrorAndTheDaemonKeepsServing) {
    EXPECT_EQ(callError("echo", "(['throw'],)"), G_DBUS_ERROR_FAILED);
    EXPECT_EQ(served([&] { return KoraClient(address()).echo("still here"); }), "still here");
}

TEST_F(DBusApi, IntrospectionDescribesEveryMemberWithItsSignature) {
    g_autoptr(GVariant) reply =
        rawCall("org.freedesktop.DBus.Introspectable", "Introspect", nullptr, nullptr);
    ASSERT_NE(reply, nullptr);
    const gchar* xml = "";
    g_variant_get(reply, "(&s)", &xml);
    g_autoptr(GDBusNodeInfo) node = g_dbus_node_info_new_for_xml(xml, nullptr);
    GDBusInterfaceInfo* interface =
        node ? g_dbus_node_info_lookup_interface(node, kKoradInterface) : nullptr;
    ASSERT_NE(interface, nullptr) << xml;
    auto signature = [](GDBusArgInfo** args) {
        std::string joined;
        for (; args && *args; ++args) joined += (*args)->signature;
        return joined;
    };
    std::string members;
    for (GDBusMethodInfo** m = interface->methods; m && *m; ++m)
        members += std::string((*m)->name) + "(" + signature((*m)->in_args) + ")" +
                   signature((*m)->out_args) + "\n";
    EXPECT_EQ(members,
              "registerClientWith_installationID_productID_appVersion_bundlePath_appBrand"
              "(asasasasasas)b\n"
              "updateClient_withBundePath_andVersion(asasas)b\n"
              "setRoaming(b)b\n"
              "forceCheck()\n"
              "uninstall(as)b\n"
              "registerApplicationWithIdentifier_usingIccid_imsi_wlanMac_mobileMac_software_"
              "previousVersion_appBrand_bundlePath(asasasasasasasasas)as\n"
              "echo(as)as\n");
}

// Service exchanges wait in a nested loop inside a timer; client calls are served there.
TEST_F(DBusApi, ACallIsServedWhileATimerCallbackWaitsInANestedLoop) {
    g_timeout_add(
        0,
        [](gpointer calls) -> gboolean {
            const gint64 deadline = g_get_monotonic_time() + 10 * G_USEC_PER_SEC;
            while (static_cast<std::vector<std::string>*>(calls)->empty() &&
                   g_get_monotonic_time() < deadline)
                g_main_context_iteration(nullptr, FALSE);
            return G_SOURCE_REMOVE;
        },
        &controller_.calls);
    EXPECT_EQ(served([&] { return KoraClient(address()).echo("nested"); }), "nested");
    EXPECT_EQ(controller_.mainDepths, std::vector<int>{2}) << "not served in the nested loop";
}

TEST_F(DBusApi, TheClientSaysClearlyWhenNoDaemonOwnsTheName) {
    vending_.reset();
    g_dbus_connection_close_sync(server_, nullptr, nullptr);
    EXPECT_THAT([&] { served([&] { return KoraClient(address()).echo("anyone?"); }); },
                testing::ThrowsMessage<KoraClientError>(testing::HasSubstr("not running")));
    EXPECT_THROW(KoraClient("unix:path=/nonexistent/korad-bus"), KoraClientError);
}

}  // namespace
}  // namespace kora
