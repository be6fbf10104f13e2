// koractl: calls the Korad daemon's operations from the command line, the way
// a client application does, and prints the answers.

#include <cstdio>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "client/kora_client.h"

namespace {

using kora::KoraClient;
using OptionalString = KoraClient::OptionalString;

constexpr const char* kNullArgument = "--null";

constexpr const char* kHelp = R"(NAME
    koractl - call the Korad update daemon over D-Bus

SYNOPSIS
    koractl [--address ADDRESS] COMMAND [ARGUMENT...]
    koractl --help

DESCRIPTION
    koractl calls the operations that the Korad daemon (korad) offers to client
    applications: the object /com/olvara/Korad, interface com.olvara.Korad, of
    the name com.olvara.Korad on the system bus. It prints the daemon's answer
    on standard output, one line per call.

    Strings may be absent, which is not the same as empty. Wherever a command
    takes a string, the argument --null sends an absent string, and "" sends an
    empty one. An absent string in an answer is printed as --null. (The text
    "--null" itself therefore cannot be sent.)

COMMANDS
    register IDENTIFIER INSTALLATION-ID PRODUCT-ID VERSION BUNDLE-PATH BRAND
        Registers a client application under its bundle identifier, with its
        installation and product identifiers, its version, the path of its
        bundle and its brand. The daemon replaces any earlier entry for the
        identifier and writes its registry file at once. Prints true.

    update IDENTIFIER BUNDLE-PATH VERSION
        Tells the daemon that an application now lives at BUNDLE-PATH and has
        version VERSION. An identifier the daemon does not know yet is
        registered, with the identity values of the application's own
        preference file /Library/Preferences/IDENTIFIER.plist. The registry
        file is written at once. Prints true.

    roaming on|off
        Declares that the modem is roaming (on) or back on its home network
        (off). While roaming, the daemon does not ask the update service for
        updates and postpones downloads. The state is not kept across restarts
        of the daemon. Prints true.

    force-check
        Makes the daemon forget when it last checked: its next timer tick
        (within 30 seconds) refreshes the registry and, unless the modem is
        roaming or the network is unreachable, asks the update service about
        every registered application. Prints nothing.

    uninstall IDENTIFIER
        Tells the daemon that the application has been removed: the daemon
        notifies the update service, then forgets the application and writes
        its registry file, whatever the service answered. The notice may take
        up to a minute when the service is slow. Prints true.

    register-application IDENTIFIER ICCID IMSI WLAN-MAC MOBILE-MAC SOFTWARE
                         PREVIOUS-VERSION BRAND BUNDLE-PATH
        An older registration call that the daemon accepts and ignores: nothing
        is stored. Prints its answer, which is always --null.

    echo TEXT
        Asks the daemon to log "Echoing: TEXT" and to send TEXT back, and
        prints what came back. A quick way to see that the daemon is serving.

OPTIONS
    --address ADDRESS
        Use the D-Bus bus at ADDRESS (for example unix:path=/run/korad-bus/bus)
        instead of the system bus. Without it koractl uses the system bus, or
        the bus that the environment variable DBUS_SYSTEM_BUS_ADDRESS names.

    --help
        Prints this text and exits.

EXIT STATUS
    0   the daemon answered
    1   the call failed: no bus, the daemon is not running (nobody owns
        com.olvara.Korad), no answer within 120 seconds, or an error from the
        daemon
    2   the command line is wrong

EXAMPLES
    koractl register com.example.Dialer --null --null 2.1 /Applications/Dialer.app Olvara
    koractl update com.example.Dialer /Applications/Dialer.app 2.2
    koractl roaming on
    koractl echo hello
)";

class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

using Arguments = std::vector<OptionalString>;

void printAnswer(bool answer) {
    std::printf("%s\n", answer ? "true" : "false");
}
void printAnswer(const OptionalString& answer) {
    std::printf("%s\n", answer ? answer->c_str() : kNullArgument);
}

bool roamingFlag(const OptionalString& word) {
    if (word == "on") return true;
    if (word == "off") return false;
    throw UsageError("roaming takes on or off");
}

// One row per sub-command: its name, how many arguments it takes, and the call.
// The call may throw UsageError, but only from a check that `validate` has
// already made before anything is sent.
struct Command {
    const char* name;
    std::size_t argumentCount;
    void (*run)(KoraClient& client, const Arguments& a);
    void (*validate)(const Arguments& a) = nullptr;
};

const Command kCommands[] = {
    {"register", 6,
     [](KoraClient& c, const Arguments& a) {
         printAnswer(c.registerClientWith({a[0], a[1], a[2], a[3], a[4], a[5]}));
     }},
    {"update", 3,
     [](KoraClient& c, const Arguments& a) { printAnswer(c.updateClient(a[0], a[1], a[2])); }},
    {"roaming", 1,
     [](KoraClient& c, const Arguments& a) { printAnswer(c.setRoaming(roamingFlag(a[0]))); },
     [](const Arguments& a) { roamingFlag(a[0]); }},
    {"force-check", 0, [](KoraClient& c, const Arguments&) { c.forceCheck(); }},
    {"uninstall", 1, [](KoraClient& c, const Arguments& a) { printAnswer(c.uninstall(a[0])); }},
    {"register-application", 9,
     [](KoraClient& c, const Arguments& a) {
         printAnswer(c.registerApplicationWithIdentifier(a[0], a[1], a[2], a[3], a[4], a[5], a[6],
                                                         a[7], a[8]));
     }},
    {"echo", 1, [](KoraClient& c, const Arguments& a) { printAnswer(c.echo(a[0])); }},
};

const Command& findCommand(const std::string& name) {
    for (const Command& command : kCommands)
        if (name == command.name) return command;
    throw UsageError("unknown command \"" + name + "\"");
}

// What the command line asks for, checked before anything is sent.
struct Invocation {
    std::optional<std::string> address;
    const Command* command = nullptr;
    Arguments arguments;
    bool help = false;
};

Invocation parse(int argc, char** argv) {
    Invocation invocation;
    int next = 1;
    for (; next < argc && std::strncmp(argv[next], "--", 2) == 0; ++next) {
        if (std::strcmp(argv[next], "--help") == 0) {
            invocation.help = true;
            return invocation;
        }
        if (std::strcmp(argv[next], "--address") != 0 || next + 1 >= argc)
            throw UsageError(std::string("unknown or incomplete option ") + argv[next]);
        invocation.address = argv[++next];
    }
    if (next >= argc) throw UsageError("no command given");
    invocation.command = &findCommand(argv[next++]);
    for (; next < argc; ++next) {
        const bool absent = std::strcmp(argv[next], kNullArgument) == 0;
        invocation.arguments.push_back(absent ? std::nullopt : OptionalString(argv[next]));
    }
    if (invocation.arguments.size() != invocation.command->argumentCount)
        throw UsageError(std::string(invocation.command->name) + " takes " +
                         std::to_string(invocation.command->argumentCount) + " argument(s)");
    if (invocation.command->validate) invocation.command->validate(invocation.arguments);
    return invocation;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const Invocation invocation = parse(argc, argv);
        if (invocation.help) {
            std::fputs(kHelp, stdout);
            return 0;
        }
        KoraClient client(invocation.address);
        invocation.command->run(client, invocation.arguments);
        return 0;
    } catch (const UsageError& wrong) {
        std::fprintf(stderr, "koractl: %s\nTry 'koractl --help'.\n", wrong.what());
        return 2;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "koractl: %s\n", failure.what());
        return 1;
    }
}
