#include "platform/dbus_self_update_helper.h"

#include <string>

#include "platform/nullable_string.h"
#include "platform/pellin_helper_bus_names.h"

namespace kora {
namespace {

constexpr const char* kBusName = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";
constexpr const char* kBusInterface = "org.freedesktop.DBus";
// The bus itself answers at once; this only guards against a stuck bus.
constexpr std::chrono::milliseconds kBusQueryTimeout{25'000};

// One asynchronous step's outcome, filled in by its callback.
struct Completion {
    bool done = false;
    GObject* object = nullptr;  // the bus connection, from g_bus_get
    GVariant* reply = nullptr;
    GError* error = nullptr;
};

void waitFor(const Completion& completion) {
    while (!completion.done) g_main_context_iteration(nullptr, TRUE);
}

void callFinished(GObject* bus, GAsyncResult* result, gpointer data) {
    auto* completion = static_cast<Completion*>(data);
    completion->reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(bus), result,
                                                      &completion->error);
    completion->done = true;
}

void busReady(GObject*, GAsyncResult* result, gpointer data) {
    auto* completion = static_cast<Completion*>(data);
    completion->object = G_OBJECT(g_bus_get_finish(result, &completion->error));
    completion->done = true;
}

std::string describe(GError* error) {
    g_autofree gchar* remote = g_dbus_error_get_remote_error(error);
    g_dbus_error_strip_remote_error(error);
    return remote ? std::string(error->message) + " (" + remote + ")" : error->message;
}

}  // namespace

DBusSelfUpdateHelper::DBusSelfUpdateHelper()
    : bus_(nullptr, g_object_unref), replyTimeout_(kReplyTimeout) {}

DBusSelfUpdateHelper::DBusSelfUpdateHelper(GDBusConnection* bus,
                                           std::chrono::milliseconds replyTimeout)
    : bus_(G_DBUS_CONNECTION(g_object_ref(bus)), g_object_unref), replyTimeout_(replyTimeout) {}

GDBusConnection* DBusSelfUpdateHelper::bus() {
    if (!bus_) {
        Completion completion;
        g_bus_get(G_BUS_TYPE_SYSTEM, nullptr, busReady, &completion);
        waitFor(completion);
        g_autoptr(GError) error = completion.error;
        if (completion.object == nullptr)
            throw SelfUpdateHelperError("cannot connect to the system bus: " + describe(error));
        bus_.reset(G_DBUS_CONNECTION(completion.object));
    }
    return bus_.get();
}

GVariant* DBusSelfUpdateHelper::callAndWait(const char* destination, const char* path,
                                            const char* interface, const char* member,
                                            GVariant* arguments, const char* replyType,
                                            std::chrono::milliseconds timeout) {
    GDBusConnection* connection = bus();
    Completion completion;
    g_dbus_connection_call(connection, destination, path, interface, member, arguments,
                           G_VARIANT_TYPE(replyType), G_DBUS_CALL_FLAGS_NONE,
                           static_cast<gint>(timeout.count()), nullptr, callFinished, &completion);
    waitFor(completion);
    g_autoptr(GError) error = completion.error;
    if (completion.reply == nullptr)
        throw SelfUpdateHelperError(std::string(member) + " failed: " + describe(error));
    return completion.reply;
}

bool DBusSelfUpdateHelper::nameHasOwner() {
    g_autoptr(GVariant) reply =
        callAndWait(kBusName, kBusPath, kBusInterface, "NameHasOwner",
                    g_variant_new("(s)", kPellinHelperBusName), "(b)", kBusQueryTimeout);
    gboolean owned = FALSE;
    g_variant_get(reply, "(b)", &owned);
    return owned;
}

bool DBusSelfUpdateHelper::nameIsActivatable() {
    g_autoptr(GVariant) reply = callAndWait(kBusName, kBusPath, kBusInterface,
                                            "ListActivatableNames", nullptr, "(as)",
                                            kBusQueryTimeout);
    g_autofree const gchar** names = nullptr;
    g_variant_get(reply, "(^a&s)", &names);
    return g_strv_contains(names, kPellinHelperBusName);
}

bool DBusSelfUpdateHelper::present() {
    try {
        return nameHasOwner() || nameIsActivatable();
    } catch (const SelfUpdateHelperError&) {
        return false;
    }
}

bool DBusSelfUpdateHelper::installDaemonWithIdentifier(const std::optional<std::string>& identifier,
                                                       const std::optional<std::string>& binary) {
    // GLib would send any other text as "[Invalid UTF-8]", a path the helper
    // would then look for.
    for (const auto* text : {&identifier, &binary})
        if (*text && !g_utf8_validate((*text)->data(), static_cast<gssize>((*text)->size()), nullptr))
            throw SelfUpdateHelperError("cannot send a path that is not UTF-8 text");
    GVariant* arguments[] = {nullableStringVariant(identifier), nullableStringVariant(binary)};
    g_autoptr(GVariant) reply = callAndWait(
        kPellinHelperBusName, kPellinHelperObjectPath, kPellinHelperInterface,
        kInstallDaemonMember, g_variant_new_tuple(arguments, 2), "(b)", replyTimeout_);
    gboolean installed = FALSE;
    g_variant_get(reply, "(b)", &installed);
    return installed;
}

}  // namespace kora
