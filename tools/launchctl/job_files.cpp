#include "job_files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "platform/loggable_text.h"
#include "platform/regular_file.h"
#include "platform/staged_file.h"
#include "systemd_unit.h"

namespace kora {
namespace {

namespace fs = std::filesystem;

// Our files are a few hundred bytes; a larger one is not ours.
constexpr std::size_t kMaxOwnFileBytes = 64 * 1024;

bool somethingAt(const fs::path& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0;  // a dangling link is in the way too
}

std::string smallFileText(const fs::path& path) {
    std::optional<RegularFile> file = openRegularFile(path);
    if (!file || file->size > kMaxOwnFileBytes) return {};
    std::string text(file->size, '\0');
    const ssize_t n = ::read(file->fd.get(), text.data(), text.size());
    text.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
    return text;
}

bool writtenByLaunchctl(const std::string& text) {
    return text.starts_with(kWrittenByLaunchctl);
}

bool activatesUnitOf(const std::string& text, const std::string& label) {
    return writtenByLaunchctl(text) &&
           text.find("\nSystemdService=" + unitName(label) + "\n") != std::string::npos;
}

[[noreturn]] void notOurs(const fs::path& path) {
    throw std::runtime_error(loggable(path.string()) +
                             " is already there and was not written by launchctl for this job; "
                             "it is left alone");
}

void createFolder(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error)
        throw std::runtime_error("cannot create " + loggable(folder.string()) + ": " +
                                 error.message());
}

void removeFile(const fs::path& path) {
    if (::unlink(path.c_str()) != 0 && errno != ENOENT)
        throw std::runtime_error("cannot remove " + loggable(path.string()) + ": " +
                                 std::generic_category().message(errno));
}

}  // namespace

ServiceFolders::ServiceFolders(const fs::path& root)
    : units(root / "etc/systemd/system"), activations(root / "usr/share/dbus-1/system-services") {}

fs::path ServiceFolders::unitFile(const std::string& label) const {
    return units / unitName(label);
}

fs::path ServiceFolders::activationFile(const std::string& busName) const {
    return activations / (busName + ".service");
}

void writeJobFiles(const JobDescription& job, const ServiceFolders& folders) {
    const fs::path unit = folders.unitFile(job.label);
    if (unitFileState(job.label, folders) == UnitFile::Foreign) notOurs(unit);
    for (const std::string& name : job.machServices) {
        const fs::path file = folders.activationFile(name);
        if (somethingAt(file) && !activatesUnitOf(smallFileText(file), job.label)) notOurs(file);
    }

    createFolder(folders.units);
    if (!job.machServices.empty()) createFolder(folders.activations);
    std::vector<StagedFile> staged;
    for (const std::string& name : job.machServices)
        staged.emplace_back(folders.activationFile(name), activationFileText(name, job.label));
    staged.emplace_back(unit, unitText(job));
    for (const StagedFile& file : staged) {
        if (file.error())
            throw std::runtime_error("cannot write " + loggable(file.target().string()) + ": " +
                                     file.error().message());
    }
    for (StagedFile& file : staged) {
        if (!file.commit())
            throw std::runtime_error("cannot write " + loggable(file.target().string()) + ": " +
                                     file.error().message());
    }
}

UnitFile unitFileState(const std::string& label, const ServiceFolders& folders) {
    const fs::path unit = folders.unitFile(label);
    if (!somethingAt(unit)) return UnitFile::Absent;
    return writtenByLaunchctl(smallFileText(unit)) ? UnitFile::WrittenByLaunchctl
                                                   : UnitFile::Foreign;
}

void removeJobFiles(const std::string& label, const ServiceFolders& folders) {
    // Found by content, not by the job file's names: those may have changed
    // since the job was loaded.
    std::vector<fs::path> activations;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(folders.activations, error)) {
        if (entry.path().extension() == ".service" &&
            activatesUnitOf(smallFileText(entry.path()), label))
            activations.push_back(entry.path());
    }
    for (const fs::path& file : activations) removeFile(file);
    removeFile(folders.unitFile(label));
}

}  // namespace kora
