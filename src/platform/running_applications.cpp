#include "platform/running_applications.h"

#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <system_error>

namespace kora {
namespace {

namespace fs = std::filesystem;

std::optional<pid_t> pidOf(const fs::path& entry) {
    const std::string name = entry.filename().string();
    pid_t pid = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
    if (error != std::errc() || end != name.data() + name.size() || pid <= 0) return std::nullopt;
    return pid;
}

// The real uid from the process's status file: the user who started it, even
// when the program raised or dropped its effective rights since.
std::optional<uid_t> realUserOf(const fs::path& processFolder) {
    std::ifstream status(processFolder / "status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("Uid:", 0) != 0) continue;
        unsigned long uid = 0;
        const char* begin = line.c_str() + 4;
        while (*begin == '\t' || *begin == ' ') ++begin;
        const auto [end, error] = std::from_chars(begin, line.c_str() + line.size(), uid);
        if (error != std::errc() || end == begin) return std::nullopt;
        return static_cast<uid_t>(uid);
    }
    return std::nullopt;
}

// Whether `path` is `folder` or lies below it, compared by whole components.
bool liesInside(const fs::path& path, const fs::path& folder) {
    const auto folderEnd = std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first;
    // A trailing separator leaves an empty last component in `folder`.
    return folderEnd == folder.end() || (folderEnd->empty() && std::next(folderEnd) == folder.end());
}

// The bundle as the kernel names executables: absolute, without "." and ".."
// and with its symbolic links resolved where it exists.
fs::path canonicalBundle(const fs::path& bundle) {
    std::error_code error;
    fs::path resolved = fs::weakly_canonical(bundle, error);
    return error ? bundle.lexically_normal() : resolved;
}

}  // namespace

LiveRunningApplications::LiveRunningApplications(fs::path procFolder)
    : procFolder_(std::move(procFolder)) {}

bool LiveRunningApplications::available() const {
    std::error_code error;
    return fs::exists(procFolder_ / "self", error);
}

std::vector<RunningApplications::Process> LiveRunningApplications::terminateApplicationsInBundle(
    const fs::path& bundle) {
    const fs::path folder = canonicalBundle(bundle);
    std::vector<Process> signalled;
    // A registry entry saying "/" (or nothing absolute) must not stop every
    // process on the machine.
    if (!folder.is_absolute() || folder == folder.root_path()) return signalled;
    std::error_code error;
    for (fs::directory_iterator it(procFolder_, error), end; !error && it != end; it.increment(error)) {
        const std::optional<pid_t> pid = pidOf(it->path());
        if (!pid) continue;
        std::error_code linkError;
        const fs::path executable = fs::read_symlink(it->path() / "exe", linkError);
        if (linkError || !liesInside(executable, folder)) continue;
        const std::optional<uid_t> user = realUserOf(it->path());
        if (user && ::kill(*pid, SIGTERM) == 0) signalled.push_back({*pid, *user});
    }
    std::sort(signalled.begin(), signalled.end(),
              [](const Process& a, const Process& b) { return a.pid < b.pid; });
    return signalled;
}

}  // namespace kora
