#pragma once

#include <sys/types.h>

#include <filesystem>
#include <vector>

namespace kora {

// The desktop applications that run now, found by where their executable lies.
class RunningApplications {
  public:
    // One process that was asked to quit, and the user it ran as (its real uid).
    struct Process {
        pid_t pid;
        uid_t user;
    };

    virtual ~RunningApplications() = default;

    // Whether running processes can be seen at all (on Linux: /proc is there).
    virtual bool available() const = 0;

    // Sends SIGTERM to every process whose executable lies inside `bundle`, and
    // does not wait for any of them to end. Returns the processes signalled, in
    // ascending pid order.
    virtual std::vector<Process> terminateApplicationsInBundle(const std::filesystem::path& bundle) = 0;
};

// Scans /proc/PID/exe of every process.
class LiveRunningApplications : public RunningApplications {
  public:
    explicit LiveRunningApplications(std::filesystem::path procFolder = "/proc");

    bool available() const override;
    std::vector<Process> terminateApplicationsInBundle(const std::filesystem::path& bundle) override;

  private:
    std::filesystem::path procFolder_;
};

}  // namespace kora
