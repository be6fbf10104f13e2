#include "unit_restart.h"

#include <memory>

namespace kora {
namespace {

void restartReplied(GObject* bus, GAsyncResult* result, gpointer data) {
    std::unique_ptr<RestartDone> done(static_cast<RestartDone*>(data));
    g_autoptr(GError) error = nullptr;
    g_autoptr(GVariant) reply =
        g_dbus_connection_call_finish(G_DBUS_CONNECTION(bus), result, &error);
    if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED)) return;
    if (reply == nullptr) {
        g_dbus_error_strip_remote_error(error);
        (*done)(std::string(error->message));
        return;
    }
    (*done)(std::nullopt);
}

}  // namespace

void restartUnit(GDBusConnection* bus, const std::string& unit, GCancellable* cancellable,
                 RestartDone done) {
    g_dbus_connection_call(bus, "org.freedesktop.systemd1", "/org/freedesktop/systemd1",
                           "org.freedesktop.systemd1.Manager", "RestartUnit",
                           g_variant_new("(ss)", unit.c_str(), "replace"), G_VARIANT_TYPE("(o)"),
                           G_DBUS_CALL_FLAGS_NONE, -1, cancellable, restartReplied,
                           new RestartDone(std::move(done)));
}

}  // namespace kora
