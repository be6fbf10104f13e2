#pragma once

#include <filesystem>
#include <string>

#include "job_description.h"

namespace kora {

// Where a loaded job's files go: below "/" on a live system, below another root
// folder for tests and image builds.
struct ServiceFolders {
    std::filesystem::path units;        // ROOT/etc/systemd/system
    std::filesystem::path activations;  // ROOT/usr/share/dbus-1/system-services

    explicit ServiceFolders(const std::filesystem::path& root);
    std::filesystem::path unitFile(const std::string& label) const;
    std::filesystem::path activationFile(const std::string& busName) const;
};

// Writes the job's unit and one activation file per MachServices name, creating
// missing folders. Files that launchctl wrote before for the same job are
// replaced; any other file in the way is left alone and nothing is written.
// Throws std::runtime_error with the reason; nothing is then changed.
void writeJobFiles(const JobDescription& job, const ServiceFolders& folders);

enum class UnitFile {
    Absent,
    WrittenByLaunchctl,
    Foreign,  // anything else in its place, a masking link to /dev/null too
};
UnitFile unitFileState(const std::string& label, const ServiceFolders& folders);

// Removes the unit and every activation file that launchctl wrote for the label.
// Call it only when the unit file is absent or launchctl's own.
// Throws std::runtime_error when a file cannot be removed.
void removeJobFiles(const std::string& label, const ServiceFolders& folders);

}  // namespace kora
