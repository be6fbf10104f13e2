// installer: installs a package file into a root folder. The Korad daemon runs
// it for the packages that updates bring; on Debian they are installed by dpkg.

#include <cstdio>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "adapter_main.h"
#include "debian_package.h"
#include "platform/loggable_text.h"
#include "platform/run_program.h"

namespace {

namespace fs = std::filesystem;
using namespace kora;

constexpr const char* kHelp = R"(NAME
    installer - install a Debian package into a root folder

SYNOPSIS
    installer -pkg FILE -target DIR
    installer --help

DESCRIPTION
    installer is the adapter through which the Korad update daemon (korad)
    installs the packages that updates bring, with the command line
    "installer -pkg FILE -target /". It installs FILE with dpkg, with DIR as
    dpkg's root folder:

        dpkg --root=DIR -i FILE

    so DIR/var/lib/dpkg is the package database (dpkg creates it when it is
    missing) and the package's files go below DIR. dpkg runs with PATH set to
    the system folders and DEBIAN_FRONTEND=noninteractive, with installer's
    standard streams; its output is installer's.

    FILE must be a Debian package (an ar archive that begins with the member
    debian-binary, as dpkg-deb builds it). Any other kind of file, such as a
    macOS .pkg, is refused with an error, and dpkg is not run.

    It is installed in korad's own folder of helper programs, not on PATH.

OPTIONS
    -pkg FILE
        The package to install.

    -target DIR
        The root folder to install into: / for the running system. It must
        be an existing folder.

    The two options may come in either order; both are required.

    --help
        Prints this text and exits.

EXIT STATUS
    0   the package was installed
    1   it was not: FILE is missing, unreadable or not a Debian package, DIR
        is not a folder, dpkg could not be started, or dpkg failed (dpkg
        explains why on standard error)
    2   the command line is wrong

EXAMPLES
    installer -pkg /tmp/Update/helper_1.2_amd64.deb -target /
    installer -target /tmp/image -pkg helper_1.2_amd64.deb
)";

struct CommandLine {
    fs::path package;
    fs::path target;
};

CommandLine parseCommandLine(const std::vector<std::string>& words) {
    std::optional<fs::path> package;
    std::optional<fs::path> target;
    for (std::size_t i = 0; i < words.size(); i += 2) {
        const std::string& option = words[i];
        if (option != "-pkg" && option != "-target")
            throw UsageError("unknown option \"" + loggable(option) + "\"");
        if (i + 1 >= words.size()) throw UsageError(option + " needs a value");
        std::optional<fs::path>& slot = option == "-pkg" ? package : target;
        if (slot) throw UsageError(option + " given twice");
        slot = words[i + 1];
    }
    if (!package || !target) throw UsageError("both -pkg FILE and -target DIR are needed");
    return {*package, *target};
}

void checkPackage(const fs::path& package) {
    switch (packageKind(package)) {
        case PackageKind::Debian:
            return;
        case PackageKind::Unreadable:
            throw std::runtime_error(loggable(package.string()) + ": not a readable file");
        case PackageKind::Other:
            throw std::runtime_error(loggable(package.string()) +
                                     ": not a Debian package; only .deb packages can be installed");
    }
}

fs::path checkedTarget(const fs::path& target) {
    std::error_code error;
    if (!fs::is_directory(target, error))
        throw std::runtime_error(loggable(target.string()) + ": the target is not a folder");
    return fs::absolute(target);
}

int install(const CommandLine& line) {
    checkPackage(line.package);
    const fs::path target = checkedTarget(line.target);
    const int status =
        runProgram(dpkgInstallCommand(fs::absolute(line.package), target), dpkgEnvironment());
    if (status < 0) throw std::runtime_error("dpkg could not be started");
    if (status != 0)
        std::fprintf(stderr, "installer: dpkg failed with status %d; %s was not installed\n",
                     status, loggable(line.package.string()).c_str());
    return status == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    return adapterMain(
        argc, argv, {"installer", "-pkg FILE -target DIR", kHelp},
        [](const std::vector<std::string>& words) { return install(parseCommandLine(words)); });
}
