#pragma once

#include <gio/gio.h>

#include <memory>

#include "controller/kora_api.h"

namespace kora {

// Serves a VendedController to D-Bus clients: the object /com/olvara/Korad with
// the interface com.olvara.Korad, as the table in platform/korad_interface.h
// describes it (members, argument order, types and caps).
//
// Calls are handled on the thread whose default main context was current at
// construction (the daemon's one thread). A call with arguments of the wrong
// type or shape, or with a string longer than its cap (255 bytes for ids,
// 4,096 for paths, 64 KiB for the echo text) or holding a character XML 1.0
// cannot carry, is answered with org.freedesktop.DBus.Error.InvalidArgs and
// never reaches the controller. A registration that the registry refuses as too
// large to read back is answered with org.freedesktop.DBus.Error.LimitsExceeded.
class DBusVending {
  public:
    // Exports the controller on the connection. Throws std::runtime_error when
    // the object cannot be registered (the path is already taken).
    DBusVending(GDBusConnection* connection, VendedController& controller);
    // Withdraws the object; calls still queued are answered with an error.
    ~DBusVending();

    DBusVending(const DBusVending&) = delete;
    DBusVending& operator=(const DBusVending&) = delete;

    // The interface description that Introspect returns for the object.
    static const char* introspectionXml();

  private:
    static void handleMethodCall(GDBusConnection* connection, const gchar* sender,
                                 const gchar* objectPath, const gchar* interfaceName,
                                 const gchar* methodName, GVariant* parameters,
                                 GDBusMethodInvocation* invocation, gpointer self);

    std::unique_ptr<GDBusConnection, decltype(&g_object_unref)> connection_;
    VendedController& controller_;
    std::unique_ptr<GDBusNodeInfo, decltype(&g_dbus_node_info_unref)> nodeInfo_;
    guint registrationId_ = 0;
};

}  // namespace kora
