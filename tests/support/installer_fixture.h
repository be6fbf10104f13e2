#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/logging.h"
#include "support/temp_dir.h"
#include "update/kora_installer.h"

namespace kora::test {

namespace fs = std::filesystem;

// Processes that "run" inside bundles, for a machine whose /proc the test
// cannot fill.
class FakeRunningApplications : public RunningApplications {
  public:
    bool available() const override { return available_; }
    std::vector<Process> terminateApplicationsInBundle(const fs::path& bundle) override {
        asked.push_back(bundle);
        return running[bundle];
    }

    bool available_ = true;
    std::map<fs::path, std::vector<Process>> running;
    std::vector<fs::path> asked;
};

// Records launches instead of starting programs; owners are set by the test.
class FakeLauncher : public ApplicationLauncher {
  public:
    bool launchApplication(const fs::path& bundle, uid_t user) override {
        launched.push_back({bundle, user});
        return true;
    }
    std::optional<uid_t> ownerOf(const fs::path& path) const override {
        const auto found = owners.find(path);
        return found != owners.end() ? std::optional<uid_t>(found->second) : std::nullopt;
    }

    std::vector<std::pair<fs::path, uid_t>> launched;
    std::map<fs::path, uid_t> owners;
};

class FakeReachability : public Reachability {
  public:
    std::optional<Flags> flagsForHost(const std::string& host) override {
        hosts.push_back(host);
        return flags;
    }

    std::optional<Flags> flags;
    std::vector<std::string> hosts;
};

class FakeWorkspace : public Workspace {
  public:
    std::optional<fs::path> absolutePathForAppBundleWithIdentifier(
        std::string_view identifier) const override {
        const auto found = bundles.find(std::string(identifier));
        return found != bundles.end() ? std::optional<fs::path>(found->second) : std::nullopt;
    }

    std::map<std::string, fs::path> bundles;
};

inline void writeText(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

inline std::string readText(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// What an installer runs on in a test: the real tools, and fakes for what the
// machine cannot offer a test.
struct TestInstallerServices {
    LiveToolRunner runner;
    FakeWorkspace workspace;
    FakeRunningApplications running;
    FakeLauncher launcher;
    FakeReachability reachability;
    LiveUserPreferences preferences;

    KoraInstallerContext context(InstallerPaths paths, ToolTable tools) {
        return KoraInstallerContext{
            .paths = std::move(paths),
            .tools = std::move(tools),
            .runner = runner,
            .workspace = workspace,
            .runningApplications = running,
            .launcher = launcher,
            .reachability = reachability,
            .userPreferences = preferences,
            .reachabilityHost = "updates.example",
            .daemonLoadPause = std::chrono::milliseconds(0),
        };
    }
};

// An installer whose fixed places lie in a temporary folder, on the test
// services, with its log lines kept.
class InstallerTest : public testing::Test, protected TestInstallerServices {
  protected:
    InstallerTest() {
        setLogSink([this](LogChannel, int, const std::string& text) { lines.push_back(text); });
    }
    ~InstallerTest() override { setLogSink({}); }

    KoraInstaller& installer() {
        if (!installer_) installer_ = std::make_unique<KoraInstaller>(context(paths, tools));
        return *installer_;
    }

    // Registers applications in the registry file: identifier and entry.
    void registerApplications(const std::vector<std::pair<std::string, PlistValue>>& entries) {
        PlistDictionary applications;
        for (const auto& [identifier, entry] : entries) applications.set(identifier, entry);
        PlistDictionary root;
        root.set("KoraDB", applications);
        fs::create_directories(paths.registryFile.parent_path());
        ASSERT_TRUE(writePropertyList(root, paths.registryFile));
    }

    // A shell script standing in for a tool: it appends its arguments as one
    // line to `<name>.calls` and exits with the status in `<name>.status`.
    // When that file is missing it runs `then` (a program and its first
    // arguments, followed by the stub's own) and exits as it does; without
    // `then`, with 0.
    fs::path recordingStub(const std::string& name, const std::vector<std::string>& then = {}) {
        const fs::path script = temp.path() / "stubs" / name;
        const fs::path calls = temp.path() / "stubs" / (name + ".calls");
        const fs::path status = temp.path() / "stubs" / (name + ".status");
        std::string last = "exit 0\n";
        if (!then.empty()) {
            last = "exec";
            for (const auto& word : then) last += " '" + word + "'";
            last += " \"$@\"\n";
        }
        writeText(script, "#!/bin/sh\necho \"$*\" >> '" + calls.string() + "'\n" +
                              "[ -f '" + status.string() + "' ] && exit $(cat '" + status.string() +
                              "')\n" + last);
        fs::permissions(script, fs::perms::owner_all);
        return script;
    }
    std::string stubCalls(const std::string& name) const {
        return readText(temp.path() / "stubs" / (name + ".calls"));
    }
    void setStubStatus(const std::string& name, int status) {
        writeText(temp.path() / "stubs" / (name + ".status"), std::to_string(status));
    }

    TempDir temp;
    InstallerPaths paths{
        .registryFile = temp.path() / "Library/Preferences/com.olvara.korad.plist",
        .applications = (temp.path() / "Applications").string(),
        .tmp = (temp.path() / "tmp").string(),
        .jobFile = (temp.path() / "Library/LaunchDaemons/%@.plist").string(),
        .installedExecutable = (temp.path() / "Library/PrivilegedHelperTools/%@").string(),
        .users = temp.path() / "Users",
    };
    ToolTable tools;
    std::vector<std::string> lines;

  private:
    std::unique_ptr<KoraInstaller> installer_;
};

inline PlistDictionary dictionaryOf(const std::vector<std::pair<std::string, PlistValue>>& entries) {
    PlistDictionary dictionary;
    for (const auto& [key, value] : entries) dictionary.set(key, value);
    return dictionary;
}

}  // namespace kora::test
