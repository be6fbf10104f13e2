// launchctl: loads and unloads daemons described by job description files, by
// turning each into a systemd service. The Korad daemon runs it to install the
// daemons that updates bring.

#include <cstdio>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "adapter_main.h"
#include "job_description.h"
#include "job_files.h"
#include "platform/loggable_text.h"
#include "systemctl.h"
#include "systemd_unit.h"

namespace {

namespace fs = std::filesystem;
using namespace kora;

constexpr const char* kHelp = R"(NAME
    launchctl - load and unload daemons described by job description files, with systemd

SYNOPSIS
    launchctl [--root DIR] load FILE
    launchctl [--root DIR] unload FILE
    launchctl --help

DESCRIPTION
    launchctl is the adapter through which the Korad update daemon (korad)
    installs the daemons that updates bring. It reads a job description, a
    property list (XML or binary) whose top-level dictionary describes one
    daemon, and carries it out with systemd: the job becomes the service unit
    /etc/systemd/system/LABEL.service.

    It is installed in korad's own folder of helper programs, not on PATH.

COMMANDS
    load FILE
        Writes the job's unit, and one D-Bus activation file per MachServices
        name, then runs "systemctl daemon-reload", and "systemctl enable --now
        LABEL.service" when RunAtLoad is true ("systemctl enable
        LABEL.service" otherwise). Loading a job again replaces the files that
        launchctl wrote for it.

    unload FILE
        Reads the Label of FILE, runs "systemctl disable --now LABEL.service",
        removes the unit and every activation file that launchctl wrote for
        the label, and runs "systemctl daemon-reload". A job that is not
        loaded is reported on standard error and counts as unloaded.

    launchctl changes no file that it did not write itself: each of its files
    begins with the line "# Written by launchctl load ...". A unit or an
    activation file of another origin in the way (a masked unit too) is an
    error, and nothing is changed.

JOB DESCRIPTION
    Label (string, required)
        The service's name. Letters, digits, '.', '_' and '-', beginning with
        a letter or a digit, at most 247 bytes (with ".service", systemd's
        limit of 255).

    ProgramArguments (array of strings, required)
        The program and its arguments: ExecStart=, quoted so that systemd
        passes every argument on exactly as written ('%' and '$' included).
        The program must be an absolute path without control characters or
        '$'.

    KeepAlive (boolean)
        true gives Restart=always, and StartLimitIntervalSec=0 so that systemd
        never stops restarting it. A dictionary of conditions is refused.

    RunAtLoad (boolean)
        true starts the service as it is loaded.

    ThrottleInterval (integer, 0 to 2147483647)
        Seconds between restarts: RestartSec=.

    StandardOutPath, StandardErrorPath (string)
        Absolute paths that the service's standard output and standard error
        are appended to: StandardOutput=append:PATH, StandardError=append:PATH.

    MachServices (dictionary of names to true or a dictionary)
        The D-Bus names of the service on the system bus. The first gives
        Type=dbus and BusName=, so that systemd counts the service as started
        once it owns the name. Each name gets the activation file
        /usr/share/dbus-1/system-services/NAME.service, with
        SystemdService=LABEL.service, so that a call to the name starts it.

    Any other key is ignored, with one line on standard error. A file that is
    not a property list, or that lacks Label or ProgramArguments or holds a
    key of the wrong type, is refused with the reason, and nothing is written.

OPTIONS
    --root DIR
        Writes the files below DIR (DIR/etc/systemd/system/ and
        DIR/usr/share/dbus-1/system-services/), creating missing folders, and
        runs no systemctl: for preparing a system image, and for tests.

    --help
        Prints this text and exits.

EXIT STATUS
    0   the job was loaded or unloaded
    1   it was not: a bad job file, a file in the way, a file that could not
        be written or removed, systemd not running (without --root), or a
        systemctl command that failed
    2   the command line is wrong

FILES
    /etc/systemd/system/LABEL.service
    /usr/share/dbus-1/system-services/NAME.service

EXAMPLES
    launchctl load /Library/LaunchDaemons/com.example.Helper.plist
    launchctl --root /tmp/image unload /Library/LaunchDaemons/com.example.Helper.plist
)";

struct CommandLine {
    std::optional<fs::path> root;  // none: the live system
    std::string command;
    fs::path file;
};

CommandLine parseCommandLine(const std::vector<std::string>& words) {
    CommandLine line;
    std::size_t i = 0;
    if (i < words.size() && words[i] == "--root") {
        if (i + 1 >= words.size()) throw UsageError("--root needs a folder");
        line.root = words[i + 1];
        i += 2;
    }
    if (words.size() - i != 2) throw UsageError("expected load FILE or unload FILE");
    line.command = words[i];
    line.file = words[i + 1];
    if (line.command != "load" && line.command != "unload")
        throw UsageError("unknown command \"" + loggable(line.command) + "\"");
    return line;
}

void requireSystemd(const std::string& label, const char* what) {
    if (!systemdIsRunning())
        throw std::runtime_error(std::string("systemd is not running here (no ") +
                                 kSystemdRuntimeFolder + "), so " + label + " was not " + what);
}

void load(const CommandLine& line) {
    const JobDescription job = readJobDescription(line.file);
    for (const std::string& key : job.ignoredKeys)
        std::fprintf(stderr, "launchctl: %s: ignoring %s, which is not supported\n",
                     loggable(line.file.string()).c_str(), quotedForMessage(key).c_str());
    if (!line.root) requireSystemd(job.label, "loaded");
    writeJobFiles(job, ServiceFolders(line.root.value_or("/")));
    if (line.root) return;
    systemctl({"daemon-reload"});
    if (job.runAtLoad)
        systemctl({"enable", "--now", unitName(job.label)});
    else
        systemctl({"enable", unitName(job.label)});
}

void unload(const CommandLine& line) {
    const std::string label = readJobLabel(line.file);
    if (!line.root) requireSystemd(label, "unloaded");
    const ServiceFolders folders(line.root.value_or("/"));
    switch (unitFileState(label, folders)) {
        case UnitFile::Foreign:
            throw std::runtime_error(loggable(folders.unitFile(label).string()) +
                                     " was not written by launchctl; it is left alone");
        case UnitFile::Absent:
            std::fprintf(stderr, "launchctl: %s is not loaded\n", label.c_str());
            break;
        case UnitFile::WrittenByLaunchctl:
            if (!line.root) systemctl({"disable", "--now", unitName(label)});
            break;
    }
    removeJobFiles(label, folders);
    if (!line.root) systemctl({"daemon-reload"});
}

int run(const std::vector<std::string>& words) {
    const CommandLine line = parseCommandLine(words);
    if (line.command == "load")
        load(line);
    else
        unload(line);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return adapterMain(argc, argv, {"launchctl", "[--root DIR] load|unload FILE", kHelp}, run);
}
