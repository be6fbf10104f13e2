#include "daemon/dbus_vending.h"

#include <exception>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "platform/input_limits.h"
#include "platform/korad_bus_names.h"
#include "platform/korad_interface.h"
#include "platform/logging.h"
#include "platform/nullable_string.h"
#include "platform/property_list.h"

namespace kora {
namespace {

// Thrown while decoding, before the controller is called, so a refused call
// changes nothing.
class InvalidArguments : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The arguments of one call, decoded and checked as a whole up front.
class Arguments {
  public:
    explicit Arguments(GVariant* tuple) {
        if (tuple == nullptr) return;
        if (!g_variant_is_of_type(tuple, G_VARIANT_TYPE_TUPLE))
            throw InvalidArguments("the arguments are not a tuple");
        const gsize count = g_variant_n_children(tuple);
        for (gsize i = 0; i < count; ++i) {
            g_autoptr(GVariant) child = g_variant_get_child_value(tuple, i);
            values_.push_back(decode(child, i));
        }
    }

    const OptionalString& text(std::size_t index) const {
        return valueAt<OptionalString>(index, "a nullable string (as)");
    }
    bool flag(std::size_t index) const { return valueAt<bool>(index, "a boolean (b)"); }

  private:
    using Value = std::variant<OptionalString, bool>;

    static Value decode(GVariant* value, gsize index) {
        if (g_variant_is_of_type(value, G_VARIANT_TYPE_BOOLEAN))
            return static_cast<bool>(g_variant_get_boolean(value));
        if (g_variant_is_of_type(value, G_VARIANT_TYPE_STRING_ARRAY))
            return nullableString(value, index);
        throw InvalidArguments(stringWithFormat("argument %zu has the unexpected type %s",
                                                static_cast<std::size_t>(index),
                                                g_variant_get_type_string(value)));
    }

    // A second element has no meaning and is refused rather than dropped.
    static OptionalString nullableString(GVariant* array, gsize index) {
        OptionalString text;
        if (!readNullableString(array, text))
            throw InvalidArguments(stringWithFormat(
                "argument %zu holds %zu strings; a nullable string holds zero or one",
                static_cast<std::size_t>(index),
                static_cast<std::size_t>(g_variant_n_children(array))));
        return text;
    }

    template <typename T>
    const T& valueAt(std::size_t index, const char* expected) const {
        const T* value = index < values_.size() ? std::get_if<T>(&values_[index]) : nullptr;
        if (value == nullptr)
            throw InvalidArguments(stringWithFormat("argument %zu must be %s", index, expected));
        return *value;
    }

    std::vector<Value> values_;
};

// Thrown when the registry refused a client's change because the file would
// have grown past what the daemon reads back at start. Clients are otherwise
// answered true whatever happened; this one departure is answered with
// org.freedesktop.DBus.Error.LimitsExceeded, a standard name that every D-Bus
// client knows without knowing korad.
class RegistryFull : public std::runtime_error {
  public:
    RegistryFull()
        : std::runtime_error(
              "the registry would grow past the size korad can read back; nothing was changed") {}
};

GVariant* booleanReply(bool value) {
    return g_variant_new("(b)", value);
}

// registerClientWith and updateClient answer false only when the registry
// refused the change.
GVariant* registryChangeReply(bool stored) {
    if (!stored) throw RegistryFull();
    return booleanReply(true);
}

GVariant* nullableStringReply(const OptionalString& text) {
    GVariant* element = nullableStringVariant(text);
    return g_variant_new_tuple(&element, 1);
}

ApplicationRegistration registrationFrom(const Arguments& arguments) {
    ApplicationRegistration registration;
    std::size_t index = 0;
    for (OptionalString ApplicationRegistration::*field : kRegistrationFields)
        registration.*field = arguments.text(index++);
    return registration;
}

// How each member's arguments reach the controller, in the order the interface
// table gives them. The switch names every member, so one the table gains
// without a call here fails the build.
GVariant* callController(KoradMember member, VendedController& c, const Arguments& a) {
    switch (member) {
        case KoradMember::registerClientWith: {
            const ApplicationRegistration r = registrationFrom(a);
            return registryChangeReply(c.registerClientWith(r.identifier, r.installationID,
                                                            r.productID, r.appVersion, r.bundlePath,
                                                            r.appBrand));
        }
        case KoradMember::updateClient:
            return registryChangeReply(c.updateClient(a.text(0), a.text(1), a.text(2)));
        case KoradMember::setRoaming:
            return booleanReply(c.setRoaming(a.flag(0)));
        case KoradMember::forceCheck:
            c.forceCheck();
            return nullptr;
        case KoradMember::uninstall:
            return booleanReply(c.uninstall(a.text(0)));
        case KoradMember::registerApplicationWithIdentifier:
            return nullableStringReply(c.registerApplicationWithIdentifier(
                a.text(0), a.text(1), a.text(2), a.text(3), a.text(4), a.text(5), a.text(6),
                a.text(7), a.text(8)));
        case KoradMember::echo:
            return nullableStringReply(c.echo(a.text(0)));
    }
    throw std::logic_error("a Korad member without a call");
}

// Refuses, before the controller is called, a string argument that breaks
// its cap; the error names the argument.
void checkArgument(std::size_t index, const KoradArgument& argument, const std::string& text) {
    const ArgumentCap cap = *capOf(argument.kind);
    const std::string name(argument.name);
    if (text.size() > cap.maxBytes)
        throw InvalidArguments(stringWithFormat("argument %zu (%s) is %zu bytes long; at most %zu",
                                                index, name.c_str(), text.size(), cap.maxBytes));
    if (cap.xmlTextOnly && !isXmlText(text))
        throw InvalidArguments(stringWithFormat(
            "argument %zu (%s) holds a character that XML 1.0 cannot carry", index, name.c_str()));
}

void checkArguments(const KoradMemberDescription& member, const Arguments& arguments) {
    for (std::size_t i = 0; i < member.arguments.size(); ++i) {
        if (member.arguments[i].kind == ArgumentKind::flag) continue;
        if (const OptionalString& text = arguments.text(i))
            checkArgument(i, member.arguments[i], *text);
    }
}

}  // namespace

DBusVending::DBusVending(GDBusConnection* connection, VendedController& controller)
    : connection_(G_DBUS_CONNECTION(g_object_ref(connection)), g_object_unref),
      controller_(controller),
      nodeInfo_(nullptr, g_dbus_node_info_unref) {
    g_autoptr(GError) error = nullptr;
    nodeInfo_.reset(g_dbus_node_info_new_for_xml(introspectionXml(), &error));
    if (!nodeInfo_) throw std::runtime_error(error->message);

    static const GDBusInterfaceVTable vtable = {
        &DBusVending::handleMethodCall, nullptr, nullptr, {}};
    GDBusInterfaceInfo* interface =
        g_dbus_node_info_lookup_interface(nodeInfo_.get(), kKoradInterface);
    registrationId_ = g_dbus_connection_register_object(connection_.get(), kKoradObjectPath,
                                                        interface, &vtable, this, nullptr, &error);
    if (registrationId_ == 0) throw std::runtime_error(error->message);
}

DBusVending::~DBusVending() {
    g_dbus_connection_unregister_object(connection_.get(), registrationId_);
}

const char* DBusVending::introspectionXml() {
    return koradIntrospectionXml().c_str();
}

// A C callback: nothing may leave it as an exception. Every path answers the
// invocation exactly once.
void DBusVending::handleMethodCall(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                                   const gchar* methodName, GVariant* parameters,
                                   GDBusMethodInvocation* invocation, gpointer self) {
    try {
        const KoradMemberDescription* member = findKoradMember(methodName);
        if (member == nullptr) {
            g_dbus_method_invocation_return_error(invocation, G_DBUS_ERROR,
                                                  G_DBUS_ERROR_UNKNOWN_METHOD, "No such method: %s",
                                                  methodName);
            return;
        }
        const Arguments arguments(parameters);
        checkArguments(*member, arguments);
        auto& controller = static_cast<DBusVending*>(self)->controller_;
        g_dbus_method_invocation_return_value(
            invocation, callController(member->member, controller, arguments));
    } catch (const InvalidArguments& refused) {
        g_dbus_method_invocation_return_error_literal(invocation, G_DBUS_ERROR,
                                                      G_DBUS_ERROR_INVALID_ARGS, refused.what());
    } catch (const RegistryFull& refused) {
        g_dbus_method_invocation_return_error_literal(
            invocation, G_DBUS_ERROR, G_DBUS_ERROR_LIMITS_EXCEEDED, refused.what());
    } catch (const std::exception& failure) {
        logDiagnostic("%s failed: %s", methodName, loggable(failure.what()).c_str());
        g_dbus_method_invocation_return_error_literal(invocation, G_DBUS_ERROR, G_DBUS_ERROR_FAILED,
                                                      failure.what());
    } catch (...) {
        logDiagnostic("%s failed with an unknown exception", methodName);
        g_dbus_method_invocation_return_error_literal(invocation, G_DBUS_ERROR, G_DBUS_ERROR_FAILED,
                                                      "internal error");
    }
}

}  // namespace kora
