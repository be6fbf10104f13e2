#include "client/kora_client.h"

#include <stdexcept>
#include <vector>

#include "platform/korad_bus_names.h"
#include "platform/logging.h"
#include "platform/nullable_string.h"

namespace kora {
namespace {

using OptionalString = KoraClient::OptionalString;

// D-Bus carries only UTF-8 text without NUL bytes. GLib would send any other
// string as "[Invalid UTF-8]" (or cut it at the NUL), so the daemon would store
// something the caller never gave; such a call is refused before it is sent.
void checkSendable(const std::vector<const OptionalString*>& texts) {
    for (const OptionalString* text : texts) {
        if (*text &&
            !g_utf8_validate((*text)->data(), static_cast<gssize>((*text)->size()), nullptr))
            throw KoraClientError("a string to send is not UTF-8 text without NUL bytes");
    }
}

GVariant* nullableStrings(const std::vector<const OptionalString*>& texts) {
    checkSendable(texts);
    std::vector<GVariant*> children;
    for (const OptionalString* text : texts) children.push_back(nullableStringVariant(*text));
    return g_variant_new_tuple(children.data(), children.size());
}

bool isNotRunning(const GError* error) {
    return g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
           g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER);
}

bool isNoAnswer(const GError* error) {
    return g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT) ||
           g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NO_REPLY) ||
           g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_TIMEOUT);
}

std::string describeCallError(const char* member, GError* error) {
    if (isNotRunning(error))
        return stringWithFormat("the Korad daemon is not running: no process owns %s on the bus",
                                kKoradBusName);
    if (isNoAnswer(error))
        return stringWithFormat("the Korad daemon did not answer %s: %s", member, error->message);
    if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CLOSED))
        return "the connection to the bus was closed";
    g_autofree gchar* remoteName = g_dbus_error_get_remote_error(error);
    g_dbus_error_strip_remote_error(error);
    return stringWithFormat("%s failed: %s%s%s%s", member, error->message, remoteName ? " (" : "",
                            remoteName ? remoteName : "", remoteName ? ")" : "");
}

GDBusConnection* connectTo(const std::optional<std::string>& busAddress) {
    g_autoptr(GError) error = nullptr;
    g_autofree gchar* address =
        busAddress ? g_strdup(busAddress->c_str())
                   : g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (address == nullptr)
        throw KoraClientError(stringWithFormat("cannot find the system bus: %s", error->message));
    // A connection of our own: the client can be made and dropped at will
    // without touching the process-wide bus singletons.
    GDBusConnection* connection = g_dbus_connection_new_for_address_sync(
        address,
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, &error);
    if (connection == nullptr)
        throw KoraClientError(
            stringWithFormat("cannot connect to the bus at %s: %s", address, error->message));
    return connection;
}

}  // namespace

KoraClient::KoraClient(const std::optional<std::string>& busAddress)
    : connection_(connectTo(busAddress), g_object_unref) {}

KoraClient::~KoraClient() {
    // Flushes nothing (every call waited for its reply) but stops GDBus's
    // worker from keeping the socket open after we are gone.
    g_dbus_connection_close_sync(connection_.get(), nullptr, nullptr);
}

GVariant* KoraClient::call(KoradMember member, GVariant* arguments) {
    const KoradMemberDescription& description = describe(member);
    const std::string name(description.name);
    const gsize count = arguments ? g_variant_n_children(arguments) : 0;
    if (count != description.arguments.size()) {
        if (arguments) g_variant_unref(g_variant_ref_sink(arguments));
        throw std::logic_error(name + " called with an argument count other than the table's");
    }
    g_autoptr(GError) error = nullptr;
    GVariant* reply = g_dbus_connection_call_sync(
        connection_.get(), kKoradBusName, kKoradObjectPath, kKoradInterface, name.c_str(),
        arguments, G_VARIANT_TYPE(replyTupleType(description.reply)), G_DBUS_CALL_FLAGS_NONE,
        static_cast<gint>(kCallReplyTimeout.count()), nullptr, &error);
    if (reply == nullptr) throw KoraClientError(describeCallError(name.c_str(), error));
    return reply;
}

bool KoraClient::callForBoolean(KoradMember member, GVariant* arguments) {
    g_autoptr(GVariant) reply = call(member, arguments);
    gboolean result = FALSE;
    g_variant_get(reply, "(b)", &result);
    return result;
}

OptionalString KoraClient::callForString(KoradMember member, GVariant* arguments) {
    g_autoptr(GVariant) reply = call(member, arguments);
    g_autoptr(GVariant) array = g_variant_get_child_value(reply, 0);
    OptionalString text;
    if (!readNullableString(array, text))
        throw KoraClientError(
            stringWithFormat("%s answered %zu strings where a nullable string holds at most one",
                             std::string(describe(member).name).c_str(),
                             static_cast<std::size_t>(g_variant_n_children(array))));
    return text;
}

bool KoraClient::registerClientWith(const ApplicationRegistration& registration) {
    std::vector<const OptionalString*> fields;
    for (OptionalString ApplicationRegistration::*field : kRegistrationFields)
        fields.push_back(&(registration.*field));
    return callForBoolean(KoradMember::registerClientWith, nullableStrings(fields));
}

bool KoraClient::updateClient(const OptionalString& identifier, const OptionalString& bundlePath,
                              const OptionalString& version) {
    return callForBoolean(KoradMember::updateClient,
                          nullableStrings({&identifier, &bundlePath, &version}));
}

bool KoraClient::setRoaming(bool roaming) {
    return callForBoolean(KoradMember::setRoaming, g_variant_new("(b)", roaming));
}

void KoraClient::forceCheck() {
    g_variant_unref(call(KoradMember::forceCheck, nullptr));
}

bool KoraClient::uninstall(const OptionalString& identifier) {
    return callForBoolean(KoradMember::uninstall, nullableStrings({&identifier}));
}

OptionalString KoraClient::registerApplicationWithIdentifier(
    const OptionalString& identifier, const OptionalString& iccid, const OptionalString& imsi,
    const OptionalString& wlanMac, const OptionalString& mobileMac, const OptionalString& software,
    const OptionalString& previousVersion, const OptionalString& appBrand,
    const OptionalString& bundlePath) {
    return callForString(KoradMember::registerApplicationWithIdentifier,
                         nullableStrings({&identifier, &iccid, &imsi, &wlanMac, &mobileMac,
                                          &software, &previousVersion, &appBrand, &bundlePath}));
}

OptionalString KoraClient::echo(const OptionalString& text) {
    return callForString(KoradMember::echo, nullableStrings({&text}));
}

}  // namespace kora
