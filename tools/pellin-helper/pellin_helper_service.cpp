#include "pellin_helper_service.h"

#include <exception>
#include <memory>
#include <stdexcept>
#include <utility>

#include "platform/input_limits.h"
#include "platform/korad_bus_names.h"
#include "platform/logging.h"
#include "platform/nullable_string.h"
#include "platform/pellin_helper_bus_names.h"
#include "unit_restart.h"

namespace kora {
namespace {

using OptionalString = std::optional<std::string>;

// Refused with InvalidArgs before anything is looked at.
class InvalidArguments : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

OptionalString nullableArgument(GVariant* parameters, gsize index, const char* name,
                                std::size_t maxBytes) {
    g_autoptr(GVariant) array = g_variant_get_child_value(parameters, index);
    OptionalString text;
    if (!readNullableString(array, text))
        throw InvalidArguments(std::string(name) + " holds more than one string");
    if (text && text->size() > maxBytes)
        throw InvalidArguments(std::string(name) + " is longer than " + std::to_string(maxBytes) +
                               " bytes");
    return text;
}

void answer(GDBusMethodInvocation* invocation, bool installed) {
    g_dbus_method_invocation_return_value(invocation, g_variant_new("(b)", installed));
}

}  // namespace

// A call whose caller is being looked up. It holds the invocation until it is
// answered.
struct PellinHelperService::PendingCall {
    PellinHelperService* service;
    GDBusMethodInvocation* invocation;
    OptionalString identifier;
    OptionalString binary;
    ~PendingCall() { g_object_unref(invocation); }
};

PellinHelperService::PellinHelperService(GDBusConnection* bus, HelperSettings settings,
                                         std::function<void()> idle)
    : bus_(G_DBUS_CONNECTION(g_object_ref(bus))),
      settings_(std::move(settings)),
      replacement_(settings_.target),
      idle_(std::move(idle)),
      cancellable_(g_cancellable_new()) {
    nodeInfo_ = g_dbus_node_info_new_for_xml(kPellinHelperIntrospection, nullptr);
    static const GDBusInterfaceVTable vtable = {handleMethodCall, nullptr, nullptr, {}};
    g_autoptr(GError) error = nullptr;
    registrationId_ = g_dbus_connection_register_object(
        bus_, kPellinHelperObjectPath, nodeInfo_->interfaces[0], &vtable, this, nullptr, &error);
    if (registrationId_ == 0) {
        const std::string message = error->message;
        g_dbus_node_info_unref(nodeInfo_);
        g_object_unref(cancellable_);
        g_object_unref(bus_);
        throw std::runtime_error("cannot serve " + std::string(kPellinHelperObjectPath) + ": " +
                                 message);
    }
    becomeIdle();
}

PellinHelperService::~PellinHelperService() {
    if (phase_ == Phase::WaitingForOwner)
        logInfo("Stopped while waiting for the new daemon; %s stays in place",
                loggable(settings_.target.string()).c_str());
    g_cancellable_cancel(cancellable_);
    stopWaiting();
    if (idleTimer_ != 0) g_source_remove(idleTimer_);
    g_dbus_connection_unregister_object(bus_, registrationId_);
    g_dbus_node_info_unref(nodeInfo_);
    g_object_unref(cancellable_);
    g_object_unref(bus_);
}

void PellinHelperService::handleMethodCall(GDBusConnection*, const gchar*, const gchar*,
                                           const gchar*, const gchar*, GVariant* parameters,
                                           GDBusMethodInvocation* invocation, gpointer self) {
    // No exception may cross back into GDBus.
    try {
        static_cast<PellinHelperService*>(self)->receive(invocation, parameters);
    } catch (const InvalidArguments& refused) {
        g_dbus_method_invocation_return_dbus_error(
            invocation, "org.freedesktop.DBus.Error.InvalidArgs", refused.what());
    } catch (const std::exception& failure) {
        logInfo("Cannot handle a call: %s", loggable(failure.what()).c_str());
        g_dbus_method_invocation_return_dbus_error(invocation, "org.freedesktop.DBus.Error.Failed",
                                                   failure.what());
    }
}

void PellinHelperService::receive(GDBusMethodInvocation* invocation, GVariant* parameters) {
    auto identifier = nullableArgument(parameters, 0, "identifier", kMaxIdentifierBytes);
    auto binary = nullableArgument(parameters, 1, "binary", kMaxPathBytes);
    if (phase_ != Phase::Idle) {
        logInfo("Will not install a new daemon while another replacement is under way");
        answer(invocation, false);
        return;
    }
    phase_ = Phase::CheckingCaller;
    if (idleTimer_ != 0) g_source_remove(std::exchange(idleTimer_, 0));
    // Beside the bus policy: a bus that does not enforce it (a development bus)
    // must not let any user replace a root daemon.
    auto* call = new PendingCall{this, G_DBUS_METHOD_INVOCATION(g_object_ref(invocation)),
                                 std::move(identifier), std::move(binary)};
    g_dbus_connection_call(bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                           "org.freedesktop.DBus", "GetConnectionUnixUser",
                           g_variant_new("(s)", g_dbus_method_invocation_get_sender(invocation)),
                           G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, -1, cancellable_,
                           callerUserKnown, call);
}

void PellinHelperService::callerUserKnown(GObject* bus, GAsyncResult* result, gpointer pending) {
    std::unique_ptr<PendingCall> call(static_cast<PendingCall*>(pending));
    g_autoptr(GError) error = nullptr;
    g_autoptr(GVariant) reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(bus), result, &error);
    if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED)) return;  // service is gone
    std::optional<guint32> user;
    if (reply != nullptr) {
        guint32 uid = 0;
        g_variant_get(reply, "(u)", &uid);
        user = uid;
    }
    call->service->callerChecked(*call, user);
}

void PellinHelperService::callerChecked(PendingCall& call, const std::optional<guint32>& user) {
    if (user != 0u) {
        logInfo("Refused a call from %s: only root may replace the daemon",
                user ? ("user " + std::to_string(*user)).c_str() : "an unknown user");
        g_dbus_method_invocation_return_dbus_error(
            call.invocation, "org.freedesktop.DBus.Error.AccessDenied",
            "only root may replace the daemon's executable");
        becomeIdle();
        return;
    }
    const bool installed = replace(call.identifier, call.binary);
    answer(call.invocation, installed);
    if (installed)
        watchForNewOwner();
    else
        becomeIdle();
}

bool PellinHelperService::replace(const OptionalString& identifier, const OptionalString& binary) {
    if (!identifier || !binary) {
        logInfo("Will not install a new daemon: the call names no %s",
                identifier ? "binary" : "identifier");
        return false;
    }
    logInfo("Asked to install the daemon %s from %s", loggable(*identifier).c_str(),
            loggable(*binary).c_str());
    // This helper replaces one daemon; any other identifier is a mistake.
    if (*identifier != kKoradBusName) {
        logInfo("Will not install a new daemon: %s is not the identifier of %s",
                loggable(*identifier).c_str(), loggable(settings_.target.string()).c_str());
        return false;
    }
    return replacement_.install(*identifier, *binary);
}

// The name's current owner, reported first by the watch, is the daemon that is
// about to be restarted; any other owner after the restart is the new one
// (unique names are never reused on a bus).
void PellinHelperService::watchForNewOwner() {
    phase_ = Phase::WaitingForOwner;
    restartRequested_ = false;
    watchId_ = g_bus_watch_name_on_connection(bus_, kKoradBusName, G_BUS_NAME_WATCHER_FLAGS_NONE,
                                              ownerAppeared, ownerVanished, this, nullptr);
}

void PellinHelperService::ownerAppeared(GDBusConnection*, const gchar*, const gchar* owner,
                                        gpointer self) {
    static_cast<PellinHelperService*>(self)->ownerSeen(owner);
}

void PellinHelperService::ownerVanished(GDBusConnection*, const gchar*, gpointer self) {
    static_cast<PellinHelperService*>(self)->ownerSeen(nullptr);
}

void PellinHelperService::ownerSeen(const char* owner) {
    if (phase_ != Phase::WaitingForOwner) return;
    if (!restartRequested_) {
        restartRequested_ = true;
        previousOwner_ = owner ? owner : "";
        logInfo("Restarting %s with the new executable", loggable(settings_.unit).c_str());
        ownerTimer_ = g_timeout_add(static_cast<guint>(settings_.ownerWait.count()),
                                    ownerWaitEnded, this);
        restartUnit(bus_, settings_.unit, cancellable_,
                    [this](const std::optional<std::string>& error) {
                        if (error && phase_ == Phase::WaitingForOwner)
                            rollBack("systemd did not restart " + loggable(settings_.unit) + ": " +
                                     loggable(*error));
                    });
        return;
    }
    if (owner != nullptr && previousOwner_ != owner) {
        logInfo("The new daemon runs: %s owns %s", owner, kKoradBusName);
        stopWaiting();
        becomeIdle();
    }
}

gboolean PellinHelperService::ownerWaitEnded(gpointer self) {
    auto* service = static_cast<PellinHelperService*>(self);
    service->ownerTimer_ = 0;
    service->rollBack(stringWithFormat("no process owned %s within %lld ms of the restart",
                                       kKoradBusName,
                                       static_cast<long long>(service->settings_.ownerWait.count())));
    return G_SOURCE_REMOVE;
}

void PellinHelperService::rollBack(const std::string& reason) {
    logInfo("The new daemon failed (%s): putting the previous executable back", reason.c_str());
    stopWaiting();
    if (!replacement_.rollBack()) {
        becomeIdle();
        return;
    }
    phase_ = Phase::RollingBack;
    restartUnit(bus_, settings_.unit, cancellable_,
                [this](const std::optional<std::string>& error) {
                    if (error)
                        logInfo("systemd did not restart %s: %s", loggable(settings_.unit).c_str(),
                                loggable(*error).c_str());
                    else
                        logInfo("Restarted %s with the previous executable",
                                loggable(settings_.unit).c_str());
                    becomeIdle();
                });
}

void PellinHelperService::stopWaiting() {
    if (watchId_ != 0) g_bus_unwatch_name(std::exchange(watchId_, 0));
    if (ownerTimer_ != 0) g_source_remove(std::exchange(ownerTimer_, 0));
}

void PellinHelperService::becomeIdle() {
    phase_ = Phase::Idle;
    if (idleTimer_ == 0)
        idleTimer_ = g_timeout_add(static_cast<guint>(settings_.idleExit.count()), idleTimeEnded,
                                   this);
}

gboolean PellinHelperService::idleTimeEnded(gpointer self) {
    auto* service = static_cast<PellinHelperService*>(self);
    service->idleTimer_ = 0;
    service->idle_();
    return G_SOURCE_REMOVE;
}

}  // namespace kora
