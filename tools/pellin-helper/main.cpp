// pellin-helper: the Korad daemon's self-update helper. Owns
// com.olvara.PellinHelper on the system bus, replaces the daemon's executable
// when root asks it to, restarts the daemon's unit, and puts the previous
// executable back when the new daemon does not come up.

#include <gio/gio.h>
#include <glib-unix.h>

#include <chrono>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <optional>
#include <string>

#include "pellin_helper_service.h"
#include "platform/logging.h"
#include "platform/pellin_helper_bus_names.h"
#include "platform/system_bus.h"

namespace {

constexpr const char* kHelp = R"(NAME
    pellin-helper - replace the Korad daemon's executable and restart it

SYNOPSIS
    pellin-helper [--target PATH] [--unit NAME] [--wait SECONDS] [--idle SECONDS]
    pellin-helper --help

DESCRIPTION
    pellin-helper is the self-update helper of the Korad update daemon (korad).
    It is not meant to be started by hand: the system bus starts it (through
    systemd's pellin-helper.service) when a process calls its name,
    com.olvara.PellinHelper. Only root may call it.

    It serves the object /com/olvara/PellinHelper, interface
    com.olvara.PellinHelper, with one method:

    installDaemonWithIdentifier_andBinary(as identifier, as binary) -> b
        Each argument is an array of zero strings (absent) or one string.
        IDENTIFIER must be com.olvara.Korad and BINARY the path of the new
        daemon executable: an ELF or Mach-O file whose embedded bundle
        description (section "__TEXT,__info_plist") has CFBundleIdentifier
        com.olvara.Korad. Otherwise, or when an argument is absent, the answer
        is false and nothing changes.

        When the file qualifies, pellin-helper copies it beside the daemon's
        executable and flushes it to disk, keeps the current executable as
        korad.old in the same folder, and renames the new one into place, so
        the daemon's path always names a complete executable. It answers true,
        then asks systemd to restart korad.service. When no process owns
        com.olvara.Korad within 30 seconds, it renames korad.old back into
        place and restarts the unit again.

        A call while a replacement is under way gets false. A call from a user
        other than root gets the error org.freedesktop.DBus.Error.AccessDenied,
        and one with an array of more than one string, an identifier longer than
        255 bytes or a path longer than 4096 bytes gets
        org.freedesktop.DBus.Error.InvalidArgs.

    pellin-helper exits by itself after 30 seconds without a call and with no
    replacement under way; the next call starts it again. SIGTERM and SIGINT
    end it at once. Its log lines go to the system log and to standard error.

OPTIONS
    For tests and development only; the installed helper runs without them.

    --target PATH
        The daemon's executable to replace, instead of @KORAD_EXECUTABLE@.
        The previous one is kept as PATH.old.

    --unit NAME
        The systemd unit to restart, instead of korad.service.

    --wait SECONDS
        How long to wait for the new daemon to own com.olvara.Korad before
        putting the previous executable back, instead of 30 (1 to 3600).

    --idle SECONDS
        How long to stay without a call before exiting, instead of 30
        (1 to 3600).

    --help
        Print this text and exit.

ENVIRONMENT
    DBUS_SYSTEM_BUS_ADDRESS
        The bus to use as the system bus (GLib's own variable), for tests.

EXIT STATUS
    0 after an idle exit or a signal; 1 when the system bus cannot be reached
    or another process owns com.olvara.PellinHelper; 2 for a wrong command line.

FILES
    @KORAD_EXECUTABLE@
        The daemon's executable, and @KORAD_EXECUTABLE@.old beside it.
)";

struct RunState {
    GMainLoop* loop = nullptr;
    bool ownsName = false;
    int exitStatus = 0;
};

void printHelp() {
    std::string text = kHelp;
    const std::string placeholder = "@KORAD_EXECUTABLE@";
    for (auto at = text.find(placeholder); at != std::string::npos; at = text.find(placeholder))
        text.replace(at, placeholder.size(), KORAD_EXECUTABLE);
    std::fputs(text.c_str(), stdout);
}

std::optional<std::chrono::seconds> secondsFrom(const char* text) {
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || value < 1 || value > 3600) return std::nullopt;
    return std::chrono::seconds(value);
}

// The settings, or no value after printing why the command line is wrong (or
// the help, when `helped` is set).
std::optional<kora::HelperSettings> parseCommandLine(int argc, char** argv, bool& helped) {
    kora::HelperSettings settings{KORAD_EXECUTABLE, "korad.service", std::chrono::seconds(30),
                                  std::chrono::seconds(30)};
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--help") {
            helped = true;
            printHelp();
            return std::nullopt;
        }
        if (option != "--target" && option != "--unit" && option != "--wait" &&
            option != "--idle") {
            std::fprintf(stderr, "pellin-helper: unknown option %s\nTry pellin-helper --help.\n",
                         option.c_str());
            return std::nullopt;
        }
        const char* value = i + 1 < argc ? argv[i + 1] : nullptr;
        if (value == nullptr) {
            std::fprintf(stderr, "pellin-helper: %s needs a value\n", option.c_str());
            return std::nullopt;
        }
        ++i;
        if (option == "--target") {
            settings.target = value;
        } else if (option == "--unit") {
            settings.unit = value;
        } else {
            const auto seconds = secondsFrom(value);
            if (!seconds) {
                std::fprintf(stderr, "pellin-helper: %s takes whole seconds from 1 to 3600, not %s\n",
                             option.c_str(), value);
                return std::nullopt;
            }
            (option == "--wait" ? settings.ownerWait : settings.idleExit) = *seconds;
        }
    }
    return settings;
}

gboolean quitOnSignal(gpointer data) {
    g_main_loop_quit(static_cast<RunState*>(data)->loop);
    return G_SOURCE_CONTINUE;
}

void nameAcquired(GDBusConnection*, const gchar*, gpointer data) {
    static_cast<RunState*>(data)->ownsName = true;
}

void nameLost(GDBusConnection*, const gchar* name, gpointer data) {
    auto* state = static_cast<RunState*>(data);
    kora::logInfo(state->ownsName ? "Lost the name %s on the system bus"
                                  : "Cannot own the name %s on the system bus: another process "
                                    "owns it, or the bus policy forbids it",
                  name);
    state->exitStatus = 1;
    g_main_loop_quit(state->loop);
}

int serve(GDBusConnection* bus, const kora::HelperSettings& settings) {
    g_autoptr(GMainLoop) loop = g_main_loop_new(nullptr, FALSE);
    RunState state{loop};
    const guint termSource = g_unix_signal_add(SIGTERM, quitOnSignal, &state);
    const guint intSource = g_unix_signal_add(SIGINT, quitOnSignal, &state);
    {
        // Exported before the name is requested, so no call finds it missing.
        kora::PellinHelperService service(bus, settings, [&state] {
            kora::logInfo("No call for a while: exiting");
            g_main_loop_quit(state.loop);
        });
        const guint ownerId = g_bus_own_name_on_connection(
            bus, kora::kPellinHelperBusName, G_BUS_NAME_OWNER_FLAGS_DO_NOT_QUEUE, nameAcquired,
            nameLost, &state, nullptr);
        g_main_loop_run(loop);
        g_bus_unown_name(ownerId);
    }
    g_source_remove(termSource);
    g_source_remove(intSource);
    return state.exitStatus;
}

}  // namespace

int main(int argc, char** argv) {
    bool helped = false;
    const auto settings = parseCommandLine(argc, argv, helped);
    if (!settings) return helped ? 0 : 2;

    kora::openSystemLog();
    g_autoptr(GDBusConnection) bus = kora::connectToSystemBus();
    if (bus == nullptr) {
        kora::closeSystemLog();
        return 1;
    }
    int status = 1;
    try {
        status = serve(bus, *settings);
    } catch (const std::exception& failure) {
        kora::logInfo("Cannot start: %s", kora::loggable(failure.what()).c_str());
    }
    // Replies and the last restart request leave before the process does.
    g_dbus_connection_flush_sync(bus, nullptr, nullptr);
    kora::closeSystemLog();
    return status;
}
