#pragma once
// What every end-to-end fixture shares: a temporary folder with "out" (the host
// folder a session leaves what it saw in) and a private bus at "bus", and a
// runner of shell sessions in scripts/korad-sandbox. Only a machine where
// bubblewrap cannot run at all skips.

#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/command.h"
#include "support/file_text.h"
#include "support/temp_dir.h"

namespace kora {

inline const std::string kSource = KORAD_SOURCE_DIR;

class SandboxTest : public testing::Test {
  protected:
    void SetUp() override {
        const CommandOutcome probe = runCommand({"bwrap", "--ro-bind", "/", "/", "true"});
        if (probe.status != 0) GTEST_SKIP() << "bubblewrap cannot run here: " << probe.output;
        std::filesystem::create_directory(out());
        const CommandOutcome bus = startBus();
        ASSERT_EQ(bus.status, 0) << bus.output;
        busPid_ = std::stoi(bus.output);
    }
    void TearDown() override {
        if (busPid_ > 0) kill(busPid_, SIGTERM);
    }

    // A bus at dir_/bus; prints the bus daemon's process ID.
    virtual CommandOutcome startBus() {
        return runCommand({kSource + "/scripts/private-bus", dir_.path()});
    }

    // Runs `preamble` then `script` with bash -eu in a fresh sandbox on the bus,
    // with OUT writable and the source and build folders readable; `options`
    // adds korad-sandbox options. Ends after `seconds` at the latest.
    CommandOutcome sandboxed(const std::string& preamble, const std::string& script,
                             const std::vector<std::string>& options, int seconds) {
        std::vector<std::string> command{"timeout", std::to_string(seconds),
                                         kSource + "/scripts/korad-sandbox", "--bus", dir_.path(),
                                         "--bind", out(), "--ro-bind", kSource, "--ro-bind",
                                         KORAD_BUILD_DIR};
        command.insert(command.end(), options.begin(), options.end());
        command.insert(command.end(),
                       {"--", "bash", "-euc",
                        "OUT=" + out().string() + "\n" + preamble + "\n. " + kSource +
                            "/tests/e2e/session.sh\n" + script});
        return runCommand(command);
    }

    std::filesystem::path out() const { return dir_.path() / "out"; }
    std::string saved(const std::string& name) const { return fileText(out() / name); }

    TempDir dir_;
    int busPid_ = 0;
};

}  // namespace kora
