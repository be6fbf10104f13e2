#include "platform/application_launcher.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "platform/property_list.h"
#include "platform/user_identity.h"

namespace kora {
namespace {

namespace fs = std::filesystem;

// Everything the child needs, prepared before fork.
struct LaunchPlan {
    std::string program;
    UserIdentity identity;
    std::vector<std::string> environment;
};

// The program named by the bundle's "CFBundleExecutable"; a name that would
// leave "Contents/MacOS" names none.
std::optional<fs::path> bundleExecutable(const fs::path& bundle) {
    const auto info = readPropertyListDictionary(bundle / "Contents" / "Info.plist");
    if (!info) return std::nullopt;
    const auto name = info->string("CFBundleExecutable");
    if (!name || name->empty() || *name == "." || *name == ".." ||
        name->find('/') != std::string::npos) {
        return std::nullopt;
    }
    return bundle / "Contents" / "MacOS" / *name;
}

std::optional<LaunchPlan> planFor(const fs::path& program, uid_t user) {
    std::optional<UserIdentity> identity = lookUpUser(user);
    if (!identity) return std::nullopt;
    LaunchPlan plan{program, *identity, {}};
    plan.environment = {"HOME=" + identity->home, "USER=" + identity->name,
                        "LOGNAME=" + identity->name, "SHELL=" + identity->shell,
                        "PATH=/usr/local/bin:/usr/bin:/bin"};
    return plan;
}

// Detaches the standard streams, becomes the user and executes; returns the
// errno of the step that failed.
int execAsUser(const LaunchPlan& plan, char* const* argv, char* const* envp) {
    const int null = ::open("/dev/null", O_RDWR);
    if (null < 0 || ::dup2(null, 0) < 0 || ::dup2(null, 1) < 0 || ::dup2(null, 2) < 0) return errno;
    if (null > 2) ::close(null);
    if (const int failure = becomeUser(plan.identity); failure != 0) return failure;
    if (::getuid() == 0 || ::geteuid() == 0) return EPERM;  // never a desktop application as root
    if (::chdir(plan.identity.home.c_str()) != 0 && ::chdir("/") != 0) return errno;
    ::execve(plan.program.c_str(), argv, envp);
    return errno;
}

// Runs in the grandchild. A failure is reported as an errno value on `report`;
// a successful exec closes it unwritten.
[[noreturn]] void becomeUserAndExec(const LaunchPlan& plan, char* const* argv, char* const* envp,
                                    int report) {
    const int failure = execAsUser(plan, argv, envp);
    [[maybe_unused]] const ssize_t ignored = ::write(report, &failure, sizeof failure);
    ::_exit(127);
}

// Reads the grandchild's report: zero when the program was executed.
int readReport(int report) {
    int failure = 0;
    ssize_t count;
    do {
        count = ::read(report, &failure, sizeof failure);
    } while (count < 0 && errno == EINTR);
    return count == static_cast<ssize_t>(sizeof failure) ? failure : 0;
}

}  // namespace

bool LiveApplicationLauncher::launchApplication(const fs::path& bundle, uid_t user) {
    if (user == 0) return false;
    const std::optional<fs::path> program = bundleExecutable(bundle);
    if (!program) return false;
    const std::optional<LaunchPlan> plan = planFor(*program, user);
    if (!plan) return false;

    std::vector<char*> argv{const_cast<char*>(plan->program.c_str()), nullptr};
    std::vector<char*> envp;
    for (const std::string& entry : plan->environment) envp.push_back(const_cast<char*>(entry.c_str()));
    envp.push_back(nullptr);

    int pipe[2];
    if (::pipe2(pipe, O_CLOEXEC) != 0) return false;
    // Two forks: the middle child starts its own session and exits at once, so
    // the application is nobody's child here and leaves no zombie behind.
    const pid_t child = ::fork();
    if (child < 0) {
        ::close(pipe[0]);
        ::close(pipe[1]);
        return false;
    }
    if (child == 0) {
        ::close(pipe[0]);
        if (::setsid() < 0) ::_exit(127);
        const pid_t grandchild = ::fork();
        if (grandchild == 0) becomeUserAndExec(*plan, argv.data(), envp.data(), pipe[1]);
        ::_exit(grandchild < 0 ? 127 : 0);
    }
    ::close(pipe[1]);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    const int failure = readReport(pipe[0]);
    ::close(pipe[0]);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 && failure == 0;
}

std::optional<uid_t> LiveApplicationLauncher::ownerOf(const fs::path& path) const {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) return std::nullopt;
    return status.st_uid;
}

}  // namespace kora
