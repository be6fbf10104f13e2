// The real pellin-helper and korad in a bubblewrap sandbox on a private bus; a fake of
// systemd's manager restarts the daemon from its path, so the whole hand-over runs.

#include <glib.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "e2e/sandbox_test.h"
#include "support/command.h"
#include "support/file_text.h"
#include "support/temp_dir.h"
#include "support/zip_writer.h"

namespace kora {
namespace {

namespace fs = std::filesystem;

class PellinHelperInSandbox : public SandboxTest {
  protected:
    void SetUp() override {
        // Other users reach the bus socket too (a test calls as another user).
        fs::permissions(dir_.path(), fs::perms::owner_all | fs::perms::group_exec |
                                         fs::perms::others_exec);
        SandboxTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        fs::create_directory(sbin());
        // The installed daemon: korad with a trailer, so it differs from the new one and runs.
        oldDaemon_ = fileText(KORAD_BINARY) + "installed korad";
        std::ofstream(target(), std::ios::binary) << oldDaemon_;
        fs::permissions(target(), fs::perms(0755));
    }

    // Runs `script` in the sandbox; `sandbox` adds options of korad-sandbox.
    CommandOutcome session(const std::string& script, std::vector<std::string> sandbox = {}) {
        const std::string preamble = "KORAD=" KORAD_BINARY " KORACTL=" KORACTL_BINARY
                                     " PELLIN_HELPER=" PELLIN_HELPER_BINARY
                                     " FAKE_SYSTEMD=" FAKE_SYSTEMD_BINARY
                                     " INSTALL_UPDATE=" INSTALL_UPDATE_BINARY
                                     " TARGET=" + target().string();
        sandbox.insert(sandbox.begin(), {"--bind", sbin()});
        return sandboxed(preamble, ". " + kSource + "/tests/e2e/pellin_session.sh\n" + script,
                         sandbox, 120);
    }
    fs::path sbin() const { return dir_.path() / "sbin"; }
    fs::path target() const { return sbin() / "korad"; }
    std::vector<std::string> targetFolder() const { return folderNames(sbin()); }

    std::string oldDaemon_;
};

// Each call's answer goes to "calls", one line per call, in order.
TEST_F(PellinHelperInSandbox, RefusesUnfitCallsWithoutTouchingTheDaemonThenExitsWhenIdle) {
    const auto outcome = session(R"(
        start_daemon_unit
        start_helper --idle 2
        # Which files qualify is the file-level tests' matter; one unfit file here.
        mkdir -p /tmp/Upd && echo text > /tmp/Upd/notes
        cp "$KORAD" /tmp/Upd/korad
        {
            install_daemon "['com.olvara.Korad']" "@as []"
            install_daemon "@as []" "['/tmp/Upd/korad']"
            install_daemon "['com.example.Dialer']" "['/tmp/Upd/korad']"
            install_daemon "['com.olvara.Korad']" "['/tmp/Upd/notes']"
            install_daemon "['com.olvara.Korad']" "['/tmp/Upd/korad', '/tmp/Upd/korad']"
            # gdbus checks the types itself; dbus-send sends what it is given.
            dbus-send --system --print-reply --dest=com.olvara.PellinHelper \
                /com/olvara/PellinHelper \
                com.olvara.PellinHelper.installDaemonWithIdentifier_andBinary \
                string:com.olvara.Korad string:/tmp/Upd/korad 2>&1 | head -n 1 || true
            as_user="setpriv --reuid=65534 --regid=65534 --clear-groups" \
                install_daemon "['com.olvara.Korad']" "['/tmp/Upd/korad']"
        } > "$OUT/calls"
        status=0
        timeout 20 tail --pid="$helper_pid" -f /dev/null || status=$?
        wait "$helper_pid" || status=$?
        echo "$status" > "$OUT/helper.status")");
    ASSERT_EQ(outcome.status, 0) << outcome.output << saved("helper.log");
    std::vector<std::string> calls;
    std::istringstream lines(saved("calls"));
    for (std::string line; std::getline(lines, line);) calls.push_back(line);
    ASSERT_EQ(calls.size(), 7u) << saved("calls");
    for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(calls[i], "(false,)") << "call " << i;
    EXPECT_NE(calls[4].find("InvalidArgs"), std::string::npos) << calls[4];
    EXPECT_NE(calls[5].find("InvalidArgs"), std::string::npos) << calls[5];
    EXPECT_NE(calls[6].find("AccessDenied"), std::string::npos) << calls[6];
    EXPECT_TRUE(fileText(target()) == oldDaemon_) << "the daemon's executable changed";
    EXPECT_EQ(targetFolder(), std::vector<std::string>{"korad"}) << "a file was left behind";
    EXPECT_FALSE(fs::exists(out() / "restarts")) << saved("restarts");
    EXPECT_EQ(saved("helper.status"), "0\n") << saved("helper.log");
    EXPECT_NE(saved("helper.log").find("No call for a while: exiting"), std::string::npos);
}

// The live installer, with the system's tools and the adapters, installs an application
// and hands the new daemon to the real helper, which restarts it through the fake manager.
class UpdateInstallationInSandbox : public PellinHelperInSandbox {
  protected:
    // Installs Upd.zip, with `daemon` as the new korad, with the helper waiting `wait`
    // seconds for it, then runs `afterwards`.
    void install(const std::string& daemon, const std::string& wait, const std::string& afterwards) {
        test::ZipWriter()
            .folder("Upd/")
            .folder("Upd/Sample.app/")
            .folder("Upd/Sample.app/Contents/")
            .file("Upd/Sample.app/Contents/Info.plist", "the sample's bundle description\n")
            .file("Upd/korad", fileText(daemon), 0755)
            .file("Upd/update.plist",
                  "<plist version=\"1.0\"><dict><key>Actions</key><array>"
                  "<dict><key>Command</key><string>installapp</string><key>InstallFrom</key>"
                  "<string>@update/Sample.app</string><key>InstallTo</key>"
                  "<string>@applications/Sample.app</string></dict>"
                  "<dict><key>Command</key><string>updateself</string><key>Binary</key>"
                  "<string>@update/korad</string></dict></array></dict></plist>")
            .write(out() / "Upd.zip");
        const auto outcome = session(R"(
            start_daemon_unit
            before=$(owner com.olvara.Korad)
            start_helper --wait )" + wait + R"sh(
            cp "$OUT/Upd.zip" /tmp/Upd.zip
            "$INSTALL_UPDATE" /tmp/Upd.zip "$(sha1sum /tmp/Upd.zip | cut -c1-40)" \
                > "$OUT/outcome" 2> "$OUT/install.log"
            cp -r /Applications "$OUT/Applications"
            )sh" + afterwards + R"(
            daemon_runs_target && echo yes > "$OUT/runs")",
                                     {"--adapters", KORAD_BUILD_DIR, KORAD_LIBEXEC_DIR});
        ASSERT_EQ(outcome.status, 0) << outcome.output << saved("install.log") << saved("helper.log");
        EXPECT_EQ(saved("outcome"), "installationDidFinishFor\n") << saved("install.log");
        EXPECT_NE(saved("install.log").find("the helper answered true"), std::string::npos);
        EXPECT_EQ(saved("Applications/Sample.app/Contents/Info.plist"),
                  "the sample's bundle description\n");
        EXPECT_EQ(fs::status(out() / "Applications/Sample.app/Contents/Info.plist").permissions(),
                  fs::perms(0755));
        EXPECT_EQ(saved("runs"), "yes\n") << "the daemon does not run the file in place";
    }
};

TEST_F(UpdateInstallationInSandbox, InstallsTheApplicationAndRestartsTheNewDaemon) {
    install(KORAD_BINARY, "10", R"(
        wait_until new_owner_since "$before"
        wait_until grep -q "The new daemon runs" "$OUT/helper.log")");
    EXPECT_TRUE(fileText(target()) == fileText(KORAD_BINARY)) << "the new daemon is not in place";
    EXPECT_TRUE(fileText(sbin() / "korad.old") == oldDaemon_) << "the old daemon was not kept";
    EXPECT_EQ(targetFolder(), (std::vector<std::string>{"korad", "korad.old"}));
    EXPECT_EQ(saved("restarts"), "restart korad.service replace\n");
}

TEST_F(UpdateInstallationInSandbox, InstallsTheApplicationAndRestartsTheOldDaemonWhenTheNewOneFails) {
    install(NAMELESS_DAEMON_BINARY, "2", R"(
        wait_until grep -q "Restarted korad.service with the previous executable" "$OUT/helper.log"
        wait_until has_owner)");
    EXPECT_TRUE(fileText(target()) == oldDaemon_) << "the old daemon is not back";
    EXPECT_EQ(targetFolder(), std::vector<std::string>{"korad"});
    EXPECT_EQ(saved("restarts"), "restart korad.service replace\nrestart korad.service replace\n");
    EXPECT_NE(saved("helper.log").find("no process owned com.olvara.Korad within 2000 ms"),
              std::string::npos) << saved("helper.log");
}
// A bus that enforces the installed policy, as the system bus does.
class PellinHelperOnAPolicedBus : public PellinHelperInSandbox {
  protected:
    CommandOutcome startBus() override {
        const fs::path config = dir_.path() / "policed-bus.conf";
        std::ofstream(config) << R"(<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-BUS Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <listen>unix:path=)" << (dir_.path() / "bus").string() << R"(</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
  </policy>
  <include>)" << kSource << R"(/packaging/com.olvara.PellinHelper.conf</include>
</busconfig>
)";
        return runCommand({"dbus-daemon", "--config-file=" + config.string(), "--fork",
                           "--print-pid", "--nosyslog"});
    }
};

TEST_F(PellinHelperOnAPolicedBus, LetsOnlyRootOwnTheHelpersNameAndCallIt) {
    const auto outcome = session(R"(
        nobody="setpriv --reuid=65534 --regid=65534 --clear-groups"
        status=0
        # A copy that the other user may run (the build folder may be closed to it).
        cp "$PELLIN_HELPER" /tmp/pellin-helper
        $nobody timeout 20 /tmp/pellin-helper --target "$TARGET" > "$OUT/nobody-owns" 2>&1 ||
            status=$?
        echo "$status" > "$OUT/nobody-owns.status"
        start_helper
        {
            install_daemon "['com.olvara.Korad']" "@as []"
            as_user=$nobody install_daemon "['com.olvara.Korad']" "@as []"
        } > "$OUT/calls")");
    ASSERT_EQ(outcome.status, 0) << outcome.output << saved("helper.log");
    EXPECT_NE(saved("nobody-owns").find("Cannot own the name com.olvara.PellinHelper"),
              std::string::npos)
        << saved("nobody-owns");
    EXPECT_EQ(saved("nobody-owns.status"), "1\n");
    // The bus itself refuses the second call: the helper never sees it.
    const std::string calls = saved("calls");
    EXPECT_EQ(calls.substr(0, calls.find('\n')), "(false,)") << calls;
    EXPECT_NE(calls.find("AccessDenied: Rejected send message"), std::string::npos) << calls;
}

}  // namespace
}  // namespace kora
