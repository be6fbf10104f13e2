// Installing a downloaded update: check the archive, unpack it, run its install
// script, report, then clean up or hand the daemon's own executable over.
#include <exception>
#include <system_error>

#include "platform/korad_bus_names.h"
#include "platform/logging.h"
#include "update/install_actions.h"
#include "preflight/install_commands.h"
#include "update/kora_installer.h"
#include "update/kora_update.h"
#include "update/kora_update_delegate.h"
#include "platform/self_update_helper.h"

namespace kora {
namespace {

namespace fs = std::filesystem;

constexpr const char* kRestart = "-restart";

// The archive unpacks beside itself: "/tmp/Upd.zip" holds the folder "Upd".
std::string unpackFolderOf(const std::string& archive) {
    return fs::path(archive).parent_path().string() + "/";
}

// "@update": the archive path without its extension.
std::string updateFolderOf(const std::string& archive) {
    return fs::path(archive).replace_extension().string();
}

// An archive whose name has no extension would unpack its folder onto itself,
// and a relative path names no folder to unpack into: "/" must never be one.
bool canUnpackBesideItself(const std::string& archive) {
    const fs::path path(archive);
    return path.has_extension() && path.is_absolute();
}

// The self-update reads the first "updateself" action's "Binary" once the
// script has finished.
std::optional<std::string> selfUpdateBinary(const PlistDictionary& script) {
    const PlistValue* actions = script.find("Actions");
    const PlistValue::Array* list = actions != nullptr ? actions->as<PlistValue::Array>() : nullptr;
    if (list == nullptr) return std::nullopt;
    for (const PlistValue& element : *list) {
        const PlistDictionary* action = element.as<PlistDictionary>();
        const std::optional<std::string> command = action ? action->string("Command") : std::nullopt;
        if (command && lowerCased(*command) == "updateself") return actionString(*action, "Binary");
    }
    return std::nullopt;
}

}  // namespace

void KoraUpdate::startInstallation(KoraInstaller& installer, SelfUpdateHelper* helper) {
    // The delegate's reaction may drop the update from the registry; the run
    // keeps it alive until it ends.
    const std::shared_ptr<KoraUpdate> self = selfForDelegate();

    setHasStartedInstallation(true);
    if (!archiveMatchesHash(installer)) {
        logInfo("Mismatch between local file hash and remote file hash.\n");
        logInfo("Will not tempt to install\n");
        if (delegate_ != nullptr) delegate_->installationErrorOn(self);
        return;
    }
    // The delegate's reaction may change the record; the run keeps what it unpacked.
    const std::string archive = *localFilePath_;
    if (parameters_ && lowerCased(*parameters_) == kRestart) installer.KillApplication(identifier_);

    std::optional<PlistDictionary> script = unpackScript(installer);
    ScriptOutcome outcome{.succeeded = false};
    if (script) {
        outcome = runInstallActions(script->find("Actions"), installer, *this);
    } else {
        logError("Error unzipping or parsing script\n");
    }

    if (delegate_ != nullptr) {
        if (outcome.succeeded) {
            delegate_->installationDidFinishFor(self);
        } else {
            delegate_->installationErrorOn(self);
        }
    }
    setInstallationComplete(true);
    std::error_code ignored;
    fs::remove(archive, ignored);
    if (parameters_ == kRestart) installer.StartApplication(identifier_);

    if (outcome.succeeded && outcome.selfUpdate) {
        updateSelf(installer, helper, *script);
    } else {
        cleanUpInstallation(archive);
    }
}

// Both the archive and the service's digest must be there to match.
bool KoraUpdate::archiveMatchesHash(const KoraInstaller& installer) const {
    if (!localFilePath_ || !hash_) return false;
    return lowerCased(installer.getSHA1HashForFile(*localFilePath_)) == lowerCased(*hash_);
}

// The script of the unpacked archive, or none when the archive could not be
// unpacked or its script read.
std::optional<PlistDictionary> KoraUpdate::unpackScript(KoraInstaller& installer) const {
    const std::string& archive = *localFilePath_;
    if (!canUnpackBesideItself(archive)) return std::nullopt;
    // unzip reports entries it skipped with a non-zero status; the script
    // decides whether what it needs is there.
    int resultCode = -1;
    installer.PerformTask(ToolTable::kUnzip, {"-u", "-o", archive, "-d", unpackFolderOf(archive)},
                          resultCode);
    return readPropertyListDictionary(installer.TranslateKoraString("@update/update.plist", *this));
}

void KoraUpdate::updateSelf(KoraInstaller& installer, SelfUpdateHelper* helper,
                            const PlistDictionary& script) const {
    try {
        logInfo("Will update self\n");
        std::optional<std::string> binary = selfUpdateBinary(script);
        if (binary) binary = installer.TranslateKoraString(*binary, *this);
        // With no helper on the bus the update folder stays for a later run.
        if (helper == nullptr || !helper->present()) return;
        logInfo("Ready to call PellinHelper and upgrade self from file: %s",
                binary ? loggable(*binary).c_str() : "(null)");
        helper->installDaemonWithIdentifier(std::string(kKoradBusName), binary);
    } catch (const std::exception& error) {
        logInfo("Error upgrading self: %s\n", loggable(error.what()).c_str());
    }
}

void KoraUpdate::cleanUpInstallation(const std::string& archive) {
    try {
        for (const std::string& path : {archive, updateFolderOf(archive)}) {
            std::error_code error;
            fs::remove_all(path, error);
            if (error) logInfo("Error cleaning up: %s", loggable(error.message()).c_str());
        }
    } catch (const std::exception& error) {
        logInfo("Error cleaning up: %s", loggable(error.what()).c_str());
    }
}

}  // namespace kora
