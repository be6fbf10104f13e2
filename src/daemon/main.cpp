// korad: the update daemon. Connects to the system bus, creates the one
// controller, serves it as com.olvara.Korad and runs the main loop until SIGTERM
// or SIGINT.

#include <gio/gio.h>
#include <glib-unix.h>
#include <unistd.h>

#include <cinttypes>
#include <csignal>
#include <cstdint>
#include <exception>
#include <memory>
#include <utility>

#include "controller/kora_controller.h"
#include "daemon/dbus_vending.h"
#include "daemon/development_settings.h"
#include "daemon/embedded_plists.h"
#include "platform/clock.h"
#include "platform/dbus_self_update_helper.h"
#include "platform/korad_bus_names.h"
#include "platform/machine_facts.h"
#include "platform/logging.h"
#include "platform/system_bus.h"
#include "soap/soap_update_service.h"
#include "update/kora_installer.h"

namespace {

// What the main loop's callbacks share with the entry.
struct RunState {
    GMainLoop* loop = nullptr;
    kora::KoraController* controller = nullptr;
    bool ownsName = false;
    bool nameRefused = false;
    int exitStatus = 0;
};

// The signal may come while a client call waits on the update service in a
// nested turn of the loop: ending every exchange lets that call answer, so the
// loop really quits instead of waiting for a service that may never finish.
gboolean quitOnSignal(gpointer data) {
    auto* state = static_cast<RunState*>(data);
    if (state->controller != nullptr) state->controller->beginShutdown();
    g_main_loop_quit(state->loop);
    return G_SOURCE_CONTINUE;
}

void nameAcquired(GDBusConnection*, const gchar*, gpointer data) {
    static_cast<RunState*>(data)->ownsName = true;
}

// Called when the name is refused (another process owns it: we never queue) or
// when it is lost later because the bus went away.
void nameLost(GDBusConnection*, const gchar* name, gpointer data) {
    auto* state = static_cast<RunState*>(data);
    if (state->ownsName) {
        kora::logInfo("Lost the name %s on the system bus", name);
    } else {
        kora::logInfo(
            "Cannot own the name %s on the system bus: another process owns it, "
            "or the bus policy forbids it",
            name);
        state->nameRefused = true;
    }
    state->exitStatus = 1;
    g_main_loop_quit(state->loop);
}

// Runs start-up, the main loop and shutdown with the bus already connected.
int serve(GDBusConnection* bus, int argc) {
    // Signals are caught from here on, so a stop during start-up still runs
    // the shutdown once the loop turns.
    g_autoptr(GMainLoop) loop = g_main_loop_new(nullptr, FALSE);
    RunState state{loop};
    const guint termSource = g_unix_signal_add(SIGTERM, quitOnSignal, &state);
    const guint intSource = g_unix_signal_add(SIGINT, quitOnSignal, &state);

    const auto version = kora::embeddedBundleVersion();
    kora::logInfo("Started deamon (%s) with %d parameters", version.value_or("unknown").c_str(),
                  argc);
    kora::logInfo("KORA update was a success");
    kora::logInfo("Will alloc helper object");
    const kora::DevelopmentSettings development =
        kora::readDevelopmentSettings(kora::processEnvironment);
    // Everything the controller is handed outlives it.
    kora::SoapUpdateService service(development.serviceAddress);
    const auto workspace = std::make_shared<kora::LiveWorkspace>();
    kora::LiveInstallerServices installerServices;
    kora::KoraInstaller installer(
        installerServices.context(*workspace, development.reachabilityHost));
    kora::DBusSelfUpdateHelper selfUpdateHelper;
    kora::KoraControllerSettings settings;
    settings.workspace = workspace;
    settings.clock = std::make_shared<kora::SystemClock>();
    settings.machineFacts = std::make_shared<kora::LiveMachineFacts>();
    settings.tickInterval = development.tickInterval;
    auto controller = std::make_unique<kora::KoraController>(std::move(settings), service,
                                                             installer, &selfUpdateHelper);
    state.controller = controller.get();
    kora::logInfo("Created object with address: %" PRIxPTR,
                  reinterpret_cast<std::uintptr_t>(controller.get()));

    // Exported before the name is requested, so no call can come before the
    // controller is ready to answer it.
    auto vending = std::make_unique<kora::DBusVending>(bus, *controller);
    const guint ownerId =
        g_bus_own_name_on_connection(bus, kora::kKoradBusName, G_BUS_NAME_OWNER_FLAGS_DO_NOT_QUEUE,
                                     nameAcquired, nameLost, &state, nullptr);

    g_main_loop_run(loop);

    if (state.nameRefused) {
        // The registry belongs to the instance that owns the name: leave without
        // the shutdown that would write this instance's stale copy of it.
        kora::closeSystemLog();
        _exit(state.exitStatus);
    }
    g_bus_unown_name(ownerId);
    vending.reset();
    state.controller = nullptr;
    controller.reset();  // writes the registry
    g_source_remove(termSource);
    g_source_remove(intSource);
    kora::logInfo("daemon will exit");
    return state.exitStatus;
}

}  // namespace

int main(int argc, char** argv) {
    (void)argv;
    // Checking in is connecting to the system bus. A closed bus ends the loop
    // through the lost name, and the shutdown runs.
    kora::openSystemLog();
    g_autoptr(GDBusConnection) bus = kora::connectToSystemBus();
    if (bus == nullptr) {
        kora::closeSystemLog();
        return 1;
    }

    int status = 1;
    try {
        status = serve(bus, argc);
    } catch (const std::exception& failure) {
        kora::logInfo("Cannot start: %s", kora::loggable(failure.what()).c_str());
    }
    kora::closeSystemLog();
    return status;
}
