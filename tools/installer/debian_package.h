#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace kora {

enum class PackageKind {
    Debian,
    Other,       // any other kind of file, a folder too
    Unreadable,  // missing or not readable
};

// Tells a Debian package by its first bytes: an ar archive whose first member
// is "debian-binary", as dpkg-deb requires.
PackageKind packageKind(const std::filesystem::path& file);

// The dpkg command line that installs the package with `target` as the root
// folder, and the environment entries it runs with.
std::vector<std::string> dpkgInstallCommand(const std::filesystem::path& package,
                                            const std::filesystem::path& target);
std::vector<std::string> dpkgEnvironment();

}  // namespace kora
