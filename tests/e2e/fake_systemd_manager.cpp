// usage: fake_systemd_manager UNIT EXECUTABLE FOLDER
// systemd's manager for one unit on a private bus: RestartUnit stops the process with SIGTERM
// and starts EXECUTABLE again, appending "restart UNIT MODE" to FOLDER/restarts; FOLDER/main-pid
// holds the current process ID.

#include <gio/gio.h>
#include <glib-unix.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <string>

extern char** environ;

namespace {

struct Unit {
    std::string name;
    std::string executable;
    std::string folder;
    pid_t pid = 0;
    int jobs = 0;
};

void start(Unit& unit) {
    char* argv[] = {unit.executable.data(), nullptr};
    if (posix_spawn(&unit.pid, unit.executable.c_str(), nullptr, nullptr, argv, environ) != 0) {
        std::fprintf(stderr, "fake_systemd_manager: cannot start %s\n", unit.executable.c_str());
        unit.pid = 0;
    }
    std::ofstream(unit.folder + "/main-pid") << unit.pid << "\n";
}

void stop(Unit& unit) {
    if (unit.pid <= 0) return;
    kill(unit.pid, SIGTERM);
    waitpid(unit.pid, nullptr, 0);
    unit.pid = 0;
}

constexpr const char* kIntrospection = R"(<node>
  <interface name="org.freedesktop.systemd1.Manager">
    <method name="RestartUnit">
      <arg name="name" type="s" direction="in"/>
      <arg name="mode" type="s" direction="in"/>
      <arg name="job" type="o" direction="out"/>
    </method>
  </interface>
</node>)";

void restartUnit(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
                 GVariant* parameters, GDBusMethodInvocation* invocation, gpointer data) {
    auto& unit = *static_cast<Unit*>(data);
    const gchar* name = nullptr;
    const gchar* mode = nullptr;
    g_variant_get(parameters, "(&s&s)", &name, &mode);
    if (unit.name != name) {
        g_dbus_method_invocation_return_dbus_error(
            invocation, "org.freedesktop.systemd1.NoSuchUnit", "Unit not found.");
        return;
    }
    std::ofstream(unit.folder + "/restarts", std::ios::app) << "restart " << name << " " << mode << "\n";
    stop(unit);
    start(unit);
    const std::string job = "/org/freedesktop/systemd1/job/" + std::to_string(++unit.jobs);
    g_dbus_method_invocation_return_value(invocation, g_variant_new("(o)", job.c_str()));
}

gboolean quit(gpointer loop) {
    g_main_loop_quit(static_cast<GMainLoop*>(loop));
    return G_SOURCE_REMOVE;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: fake_systemd_manager UNIT EXECUTABLE FOLDER\n");
        return 2;
    }
    Unit unit{argv[1], argv[2], argv[3]};
    g_autoptr(GError) error = nullptr;
    g_autoptr(GDBusConnection) bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (bus == nullptr) {
        std::fprintf(stderr, "fake_systemd_manager: %s\n", error->message);
        return 1;
    }
    g_autoptr(GDBusNodeInfo) info = g_dbus_node_info_new_for_xml(kIntrospection, nullptr);
    const GDBusInterfaceVTable vtable = {restartUnit, nullptr, nullptr, {}};
    g_dbus_connection_register_object(bus, "/org/freedesktop/systemd1", info->interfaces[0],
                                      &vtable, &unit, nullptr, nullptr);
    g_autoptr(GVariant) owned = g_dbus_connection_call_sync(
        bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "RequestName", g_variant_new("(su)", "org.freedesktop.systemd1", 4u), G_VARIANT_TYPE("(u)"),
        G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
    if (owned == nullptr) {
        std::fprintf(stderr, "fake_systemd_manager: %s\n", error->message);
        return 1;
    }
    start(unit);
    g_autoptr(GMainLoop) loop = g_main_loop_new(nullptr, FALSE);
    g_unix_signal_add(SIGTERM, quit, loop);
    g_main_loop_run(loop);
    stop(unit);
    return 0;
}
