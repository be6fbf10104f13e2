// The real korad and koractl, each session a script (helpers in session.sh) in a fresh
// bubblewrap sandbox on a private bus, leaving what it saw in $OUT.

#include <gio/gio.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "platform/input_limits.h"
#include "support/loopback_soap_server.h"
#include "e2e/sandbox_test.h"

namespace kora {
namespace {

using Outcome = CommandOutcome;

class KoradInSandbox : public SandboxTest {
  protected:
    // Runs the session script in a new sandbox; its output is the outcome's.
    Outcome session(const std::string& script) {
        return sandboxed("KORAD=" KORAD_BINARY " KORACTL=" KORACTL_BINARY, script,
                         {"--adapters", KORAD_BUILD_DIR, KORAD_LIBEXEC_DIR}, 120);
    }
};

TEST_F(KoradInSandbox, StartsWithItsLinesInOrderAndStopsOnSigtermWithStatusZero) {
    const Outcome outcome = session(R"(
        start_korad first second
        stop_korad > "$OUT/status"
        cp "$log" "$OUT/log")");
    ASSERT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_EQ(saved("status"), "0\n");
    const std::regex expected(
        "korad\\[\\d+\\]: Started deamon \\(1\\.3\\.1\\.0\\) with 3 parameters\n"
        "korad\\[\\d+\\]: KORA update was a success\n"
        "korad\\[\\d+\\]: Will alloc helper object\n"
        "korad\\[\\d+\\]: Created object with address: [0-9a-f]+\n"
        "korad\\[\\d+\\]: daemon will exit\n");
    EXPECT_TRUE(std::regex_match(saved("log"), expected)) << saved("log");
}

TEST_F(KoradInSandbox, ARegistrationSurvivesARestart) {
    const Outcome outcome = session(R"(
        mkdir -p /Applications/Dialer.app/Contents
        start_korad
        "$KORACTL" register com.example.Dialer INST-1 PROD-1 1.0 /Applications/Dialer.app Olvara
        stop_korad
        start_korad
        # Known to the new process: only path and version change.
        "$KORACTL" update com.example.Dialer /Applications/Dialer.app 2.0
        stop_korad
        cp /Library/Preferences/com.olvara.korad.plist "$OUT/registry")");
    ASSERT_EQ(outcome.status, 0) << outcome.output;
    const std::string registry = saved("registry");
    for (const char* kept : {"<key>com.example.Dialer</key>", "<string>INST-1</string>",
                             "<string>PROD-1</string>", "<string>2.0</string>"})
        EXPECT_NE(registry.find(kept), std::string::npos) << kept << " in\n" << registry;
}

// Each refused start leaves korad's status in "NAME.status" and what it printed in NAME.
TEST_F(KoradInSandbox, RefusesToStartClearlyWhenTheNameIsTakenOrThereIsNoBus) {
    const Outcome outcome = session(R"(
        refused() {
            local status=0
            timeout 20 "$KORAD" > "$OUT/$1" 2>&1 || status=$?
            echo "$status" > "$OUT/$1.status"
        }
        start_korad
        refused second
        DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent/bus refused busless
        "$KORACTL" echo still-here > "$OUT/echo"
        stop_korad)");
    ASSERT_EQ(outcome.status, 0) << outcome.output;
    for (const std::string name : {"second", "busless"}) {
        const int status = std::stoi(saved(name + ".status"));
        EXPECT_TRUE(status != 0 && status != 124)
            << name << " exited with " << status << " (124: it hung)";
    }
    EXPECT_NE(saved("second").find("Cannot own the name com.olvara.Korad"), std::string::npos)
        << saved("second");
    EXPECT_NE(saved("busless").find("Cannot connect to the system bus"), std::string::npos)
        << saved("busless");
    EXPECT_EQ(saved("echo"), "still-here\n") << "the first instance stopped serving";
}

// A reply trickling a byte every 500 ms holds the notice; SIGTERM still ends korad at once.
TEST_F(KoradInSandbox, SigtermEndsKoradWaitingOnATricklingServiceWithinTheGrace) {
    testing_support::LoopbackSoapServer service;
    service.answerAlways({.body = std::string(100000, ' '), .trickleMs = 500});
    const Outcome outcome = session("export KORAD_SERVICE_ADDRESS=" + service.url() + R"(
        mkdir -p /Applications/Dialer.app/Contents /Applications/Mail.app/Contents
        start_korad
        "$KORACTL" register com.example.Dialer INST-1 PROD-1 1.0 /Applications/Dialer.app Olvara
        "$KORACTL" register com.example.Mail INST-2 PROD-2 1.0 /Applications/Mail.app Olvara
        "$KORACTL" uninstall com.example.Dialer > "$OUT/uninstall" 2>&1 &
        # The reply head is in: korad now waits on the trickle.
        for _ in $(seq 200); do grep -q 'ResponseHeaders:' "$log" && break; sleep 0.1; done
        start=$(date +%s%N)
        stop_korad > "$OUT/status"
        echo $(( ($(date +%s%N) - start) / 1000000 )) > "$OUT/stop-ms"
        wait
        cp "$log" "$OUT/log"
        cp /Library/Preferences/com.olvara.korad.plist "$OUT/registry")");
    ASSERT_EQ(outcome.status, 0) << outcome.output;
    const std::string log = saved("log");
    ASSERT_NE(log.find("ResponseHeaders:"), std::string::npos) << log;
    EXPECT_EQ(saved("status"), "0\n");
    EXPECT_LT(std::stol(saved("stop-ms")),
              std::chrono::milliseconds(kShutdownGrace).count());
    EXPECT_NE(log.find("Operation was cancelled"), std::string::npos) << log;
    EXPECT_TRUE(log.ends_with("daemon will exit\n")) << log;
    const std::string registry = saved("registry");
    EXPECT_EQ(registry.find("com.example.Dialer"), std::string::npos) << registry;
    EXPECT_NE(registry.find("<key>com.example.Mail</key>"), std::string::npos) << registry;
}

}  // namespace
}  // namespace kora
