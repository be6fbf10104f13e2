#pragma once

#include <gio/gio.h>

namespace kora {

// Connects to the system bus (DBUS_SYSTEM_BUS_ADDRESS chooses another one for
// development and tests). A closed bus must end a program's loop through its
// own shutdown, not through GLib raising SIGTERM, so exit-on-close is off.
// None, after the line "Cannot connect to the system bus: %s", on failure.
GDBusConnection* connectToSystemBus();

}  // namespace kora
