#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/logging.h"
#include "platform/property_list.h"
#include "support/installer_fixture.h"
#include "support/temp_dir.h"
#include "support/zip_writer.h"
#include "update/kora_installer.h"
#include "update/kora_update.h"
#include "update/kora_update_delegate.h"
#include "platform/self_update_helper.h"

namespace kora::test {

// Preference files read and written directly: the tests run in folders they own.
struct PlainUserPreferences : UserPreferences {
    std::optional<PlistDictionary> readDictionary(const fs::path&, const fs::path& file) override {
        return readPropertyListDictionary(file);
    }
    bool writeDictionary(const fs::path&, const fs::path& file,
                         const PlistDictionary& dictionary) override {
        return writePropertyList(PlistValue(dictionary), file);
    }
};

struct RecordingHelper : SelfUpdateHelper {
    bool isPresent = true;
    std::optional<std::string> failure;
    std::vector<std::pair<std::string, std::optional<std::string>>> calls;
    bool present() override { return isPresent; }
    bool installDaemonWithIdentifier(const std::optional<std::string>& identifier,
                                     const std::optional<std::string>& binary) override {
        if (failure) throw SelfUpdateHelperError(*failure);
        calls.emplace_back(identifier.value_or("(absent)"), binary);
        return true;
    }
};

// Records each outcome call with what the update looked like at that moment.
struct RecordingDelegate : KoraUpdateDelegate {
    struct Call {
        bool succeeded;
        bool installationComplete;
        bool archiveStillThere;
    };
    std::vector<Call> calls;
    void downloadErrorOn(const std::shared_ptr<KoraUpdate>&) override {}
    void downloadDidFinishFor(const std::shared_ptr<KoraUpdate>&) override {}
    void installationErrorOn(const std::shared_ptr<KoraUpdate>& update) override { record(*update, false); }
    void installationDidFinishFor(const std::shared_ptr<KoraUpdate>& update) override {
        record(*update, true);
    }
    void record(const KoraUpdate& update, bool succeeded) {
        calls.push_back({succeeded, update.installationComplete(), fs::exists(*update.localFilePath())});
    }
};

struct LogLine {
    int priority;
    std::string text;
    bool operator==(const LogLine&) const = default;
};

// One action of an update script.
inline PlistDictionary act(const std::vector<std::pair<std::string, PlistValue>>& entries) {
    return dictionaryOf(entries);
}

// A machine in a temporary folder with recording stubs for installer and launchctl;
// cp, chmod and unzip are the real tools.
class InstallationMachine : public InstallerServices {
    TempDir temp_;

  public:
    const fs::path root = temp_.path();
    const fs::path tmp = root / "tmp";
    const fs::path applications = root / "Applications";
    const fs::path users = root / "Users";
    const fs::path calls = root / "calls.log";

    PlainUserPreferences preferences;
    RecordingHelper helper;
    RecordingDelegate delegate;
    std::vector<LogLine> log;

    InstallationMachine() {
        for (const fs::path& folder : {tmp, applications, users, root / "stubs"}) {
            fs::create_directories(folder);
        }
        setStubs("exit 0");
        setLogSink([this](LogChannel channel, int priority, const std::string& text) {
            if (channel == LogChannel::System) log.push_back({priority, text});
        });
    }
    ~InstallationMachine() { setLogSink({}); }

    // Both stubs append "NAME ARGUMENTS" to calls.log, then run `body`.
    void setStubs(const std::string& body) {
        for (const char* name : {"installer", "launchctl"}) {
            const fs::path stub = root / "stubs" / name;
            std::ofstream(stub) << "#!/bin/sh\necho \"" << name << " $*\" >> '" << calls.string()
                                << "'\n" << body << "\n";
            fs::permissions(stub, fs::perms(0755));
        }
    }

    KoraInstaller installer(const std::string& missingTool = "") {
        tools.set(ToolTable::kInstaller, root / "stubs/installer");
        tools.set(ToolTable::kLaunchctl, root / "stubs/launchctl");
        if (!missingTool.empty()) tools.set(missingTool, root / "no-such-tool");
        const InstallerPaths paths{
            .registryFile = root / "registry.plist",
            .applications = applications.string(),
            .tmp = tmp.string(),
            .jobFile = (root / "Library/LaunchDaemons/%@.plist").string(),
            .installedExecutable = (root / "Library/PrivilegedHelperTools/%@").string(),
            .users = users / "",
        };
        return KoraInstaller(context(paths, preferences, ""));
    }

    // An update of tmp/NAME (with its true digest) holding `payload` and, unless absent, `script`.
    std::shared_ptr<KoraUpdate> updateFor(const std::optional<PlistDictionary>& script,
                                          ZipWriter payload = {}, const std::string& name = "Upd.zip") {
        payload.folder("Upd/");
        if (script) payload.file("Upd/update.plist", propertyListXml(PlistValue(*script)));
        const fs::path archive = tmp / name;
        payload.write(archive);
        auto update = std::make_shared<KoraUpdate>();
        update->setIdentifier("com.olvara.Tool");
        update->setLocalFilePath(archive.string());
        update->setHash(KoraInstaller::getSHA1HashForFile(archive));
        update->setDelegate(&delegate);
        return update;
    }

    // The macros of a script value, as the installer expands them here.
    std::string expand(std::string text) const {
        for (const auto& [macro, value] : {std::pair{"@update", (tmp / "Upd").string()},
                                           {"@applications", applications.string()},
                                           {"@tmp", tmp.string()}}) {
            for (std::size_t at; (at = text.find(macro)) != std::string::npos;) {
                text.replace(at, std::string_view(macro).size(), value);
            }
        }
        return text;
    }

    std::string callsMade() const { return fileText(calls); }
};

}  // namespace kora::test
