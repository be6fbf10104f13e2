#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "platform/application_launcher.h"
#include "platform/running_applications.h"
#include "support/installer_fixture.h"

namespace kora::test {
namespace {

pid_t spawn(const fs::path& program) {
    pid_t pid = 0;
    std::string path = program.string(), seconds = "30";
    char* argv[] = {path.data(), seconds.data(), nullptr};
    EXPECT_EQ(::posix_spawn(&pid, path.c_str(), nullptr, nullptr, argv, environ), 0);
    return pid;
}

// How a child ended: the signal that ended it, or 0.
int endingSignal(pid_t pid) {
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

TEST(LiveRunningApplications, SignalsOnlyProcessesWhoseExecutableLiesInTheBundle) {
    TempDir temp;
    const fs::path bundle = temp.path() / "App.app";
    for (const fs::path& copy : {bundle / "Contents/MacOS/app", temp.path() / "App.app2/app"}) {
        fs::create_directories(copy.parent_path());
        fs::copy_file("/bin/sleep", copy);
    }
    const pid_t inside = spawn(bundle / "Contents/MacOS/app");
    const pid_t outside = spawn(temp.path() / "App.app2/app");

    LiveRunningApplications running;
    ASSERT_TRUE(running.available());
    for (const fs::path& other : {temp.path() / "App.ap", fs::path("/"), fs::path("")}) {
        EXPECT_TRUE(running.terminateApplicationsInBundle(other).empty()) << other;
    }
    const auto stopped = running.terminateApplicationsInBundle(temp.path() / "." / "App.app/");
    ASSERT_EQ(stopped.size(), 1u);
    EXPECT_EQ(stopped[0].pid, inside);
    EXPECT_EQ(stopped[0].user, ::getuid());
    EXPECT_EQ(endingSignal(inside), SIGTERM);

    ::kill(outside, SIGKILL);
    EXPECT_EQ(endingSignal(outside), SIGKILL);  // it was still running
    EXPECT_FALSE(LiveRunningApplications(temp.path()).available());
}

class LiveLauncher : public testing::Test {
  protected:
    void SetUp() override {
        if (::geteuid() != 0) GTEST_SKIP() << "starting as another user needs root";
        fs::permissions(temp.path(), fs::perms(0755));
        fs::create_directories(out);
        fs::permissions(out, fs::perms(0777));
    }
    // A bundle whose program writes who it runs as, and its session, to `out`.
    fs::path bundleNamed(const std::string& name, const std::string& executable) {
        const fs::path bundle = temp.path() / name;
        fs::create_directories(bundle / "Contents");
        writePropertyList(dictionaryOf({{"CFBundleExecutable", executable}}),
                          bundle / "Contents/Info.plist");
        writeFileText(bundle / "Contents/MacOS/run",
                  "#!/bin/sh\necho \"$(id -u) $(id -g) $HOME\" > '" + (out / "ran").string() + ".tmp'\n"
                  "mv '" + (out / "ran").string() + ".tmp' '" + (out / "ran").string() + "'\n");
        fs::permissions(bundle / "Contents/MacOS/run", fs::perms(0755));
        return bundle;
    }
    std::string waitForRun() {
        for (int i = 0; i < 500 && !fs::exists(out / "ran"); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return fileText(out / "ran");
    }

    TempDir temp;
    const fs::path out = temp.path() / "out";
    LiveApplicationLauncher launcher;
};

TEST_F(LiveLauncher, StartsTheBundlesProgramAsTheUserAndNeverAsRoot) {
    const fs::path bundle = bundleNamed("Tool.app", "run");
    EXPECT_FALSE(launcher.launchApplication(bundle, 0));
    EXPECT_FALSE(launcher.launchApplication(bundleNamed("Bad.app", "../MacOS/run"), 65534));
    EXPECT_FALSE(launcher.launchApplication(temp.path() / "Missing.app", 65534));
    EXPECT_FALSE(fs::exists(out / "ran"));

    ASSERT_TRUE(launcher.launchApplication(bundle, 65534));
    EXPECT_EQ(waitForRun(), "65534 65534 /nonexistent\n");
}

}  // namespace
}  // namespace kora::test
