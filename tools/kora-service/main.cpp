// kora-service: the reference update service of Korad, and the commands that
// manage its catalogue of offered updates and read its journal.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "command_line.h"
#include "commands.h"

namespace kora::service {
namespace {

constexpr const char* kHelp = R"HELP(NAME
    kora-service - the update web service that Korad daemons ask for updates

SYNOPSIS
    kora-service COMMAND [OPTION]... [OPERAND]...
    kora-service COMMAND --help
    kora-service --help

DESCRIPTION
    kora-service answers the eight SOAP operations of the Korad update service
    (Check, DownloadError, InstallError, DownloadComplete, InstallComplete,
    DownloadCancel, InstallCancel, Uninstall) over HTTP, offers the updates
    published into its catalogue, serves their archives, and writes every request
    it receives into a journal. Catalogue and journal live in one SQLite database.

COMMANDS
    serve      answer requests until stopped
    publish    check an update archive and offer it
    offers     list the offered updates
    withdraw   stop offering an update and delete its archive
    journal    print the requests received

    Every command takes --db PATH, the database (default
    /var/lib/kora-service/catalogue.db; the archives are kept in the folder
    "archives" beside it). "kora-service COMMAND --help" describes a command.

EXIT STATUS
    0 on success, 1 when the command failed (it says why), 2 when the command
    line was not understood.
)HELP";

const Command* const kCommands[] = {&kServeCommand, &kPublishCommand, &kOffersCommand,
                                     &kWithdrawCommand, &kJournalCommand};

const Command* commandNamed(const std::string& name) {
    for (const Command* command : kCommands) {
        if (name == command->name) return command;
    }
    return nullptr;
}

bool asksForHelp(const std::vector<std::string>& words) {
    for (const std::string& word : words) {
        if (word == "--") return false;
        if (word == "--help" || word == "-h") return true;
    }
    return false;
}

int runCommand(const Command& command, const std::vector<std::string>& words) {
    if (asksForHelp(words)) {
        std::fputs(command.help, stdout);
        return 0;
    }
    try {
        return command.run(words);
    } catch (const UsageError& error) {
        std::fprintf(stderr,
                     "kora-service %s: %s\nUsage: kora-service %s\n"
                     "Try 'kora-service %s --help' for more information.\n",
                     command.name, error.what(), command.synopsis, command.name);
        return 2;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kora-service %s: %s\n", command.name, error.what());
        return 1;
    }
}

int run(int argc, char** argv) {
    if (argc < 2 || std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0) {
        std::fputs(kHelp, argc < 2 ? stderr : stdout);
        return argc < 2 ? 2 : 0;
    }
    const Command* command = commandNamed(argv[1]);
    if (command == nullptr) {
        std::fprintf(stderr,
                     "kora-service: unknown command '%s'\n"
                     "Try 'kora-service --help' for the list of commands.\n",
                     argv[1]);
        return 2;
    }
    return runCommand(*command, std::vector<std::string>(argv + 2, argv + argc));
}

}  // namespace
}  // namespace kora::service

int main(int argc, char** argv) { return kora::service::run(argc, argv); }
