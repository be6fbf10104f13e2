#include "platform/system_bus.h"

#include "platform/logging.h"

namespace kora {

GDBusConnection* connectToSystemBus() {
    g_autoptr(GError) error = nullptr;
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (bus == nullptr) {
        logInfo("Cannot connect to the system bus: %s", loggable(error->message).c_str());
        return nullptr;
    }
    g_dbus_connection_set_exit_on_close(bus, FALSE);
    return bus;
}

}  // namespace kora
