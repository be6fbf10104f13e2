// The commands of an install script, run one action at a time.
#include "update/install_actions.h"

#include <system_error>
#include <vector>

#include "platform/logging.h"
#include "preflight/install_commands.h"
#include "update/kora_installer.h"
#include "update/kora_update.h"

namespace kora {
namespace {

namespace fs = std::filesystem;

// One action's view of the run: the installer, and the update whose folder
// "@update" names.
struct ActionRun {
    KoraInstaller& installer;
    const KoraUpdate& update;
    const PlistDictionary& action;
    // Set to -1 before the action runs; a tool that could not be started
    // leaves it there.
    int resultCode = -1;

    std::string translated(std::string_view key) const {
        return installer.TranslateKoraString(*actionString(action, key), update);
    }
};

// The path without its last component, as a script writer expects of
// "@applications/Tool.app": "/Applications". A trailing "/" is not a component.
std::string withoutLastComponent(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return "";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// "a;b" offers a and b; empty pieces are kept, as written.
std::vector<std::string> splitAtSemicolons(const std::string& text) {
    std::vector<std::string> pieces;
    std::size_t start = 0;
    for (std::size_t end; (end = text.find(';', start)) != std::string::npos; start = end + 1) {
        pieces.push_back(text.substr(start, end - start));
    }
    pieces.push_back(text.substr(start));
    return pieces;
}

bool runDelete(ActionRun& run) {
    const std::string path = run.translated(actionString(run.action, "Folder") ? "Folder" : "File");
    // The item may already be gone; the script goes on either way.
    std::error_code ignored;
    fs::remove_all(path, ignored);
    return true;
}

bool runUpdateFiles(ActionRun& run) {
    const std::string from = run.translated("From");
    const std::string to = run.translated("To");
    run.installer.PerformTask(ToolTable::kCp, {"-pRv", from, to}, run.resultCode);
    int chmodResult = -1;
    run.installer.PerformTask(ToolTable::kChmod, {"-R", "755", to}, chmodResult);
    // Only a copy that could not start fails: cp reports files it could not
    // copy with a non-zero status, and the script goes on.
    if (run.resultCode >= 0) return true;
    logInfo("Error copying files from: %s to: %s\n", loggable(from).c_str(), loggable(to).c_str());
    return false;
}

bool runInstallPkg(ActionRun& run) {
    const std::string package = run.translated("Package");
    run.installer.PerformTask(ToolTable::kInstaller, {"-pkg", package, "-target", "/"},
                              run.resultCode);
    if (run.resultCode >= 0) return true;
    logInfo("Error installing package: %s\n", loggable(package).c_str());
    return false;
}

bool runInstallApp(ActionRun& run) {
    const std::string from = run.translated("InstallFrom");
    const std::string to = run.translated("InstallTo");
    const bool compressed = actionFlag(run.action, "IsCompressed");
    // A compressed application unpacks into the folder that will hold it.
    const std::string destination = compressed ? withoutLastComponent(to) : to;
    const bool installed = compressed ? run.installer.InstallCompressedApplication(from, destination)
                                      : run.installer.InstallApplication(from, destination);
    if (installed) return true;
    logInfo("Error installing application to: %s\n", loggable(destination).c_str());
    return false;
}

bool runInstallDaemon(ActionRun& run) {
    const std::string identifier = run.translated("Identifier");
    const std::string binary = run.translated("BinaryFile");
    if (run.installer.InstallDaemonWithIdentifier(identifier, binary)) return true;
    logInfo("Error installing daemon with identifier: %s\n", loggable(identifier).c_str());
    return false;
}

// Values are taken as written: preference keys and values are not paths.
bool runUpdateSetting(ActionRun& run) {
    std::optional<std::vector<std::string>> defaults;
    if (!actionFlag(run.action, "Force")) {
        defaults = splitAtSemicolons(*actionString(run.action, "DefaultValues"));
    }
    // A user whose value matched none of the defaults is not a failure.
    run.installer.UpdateSettingForApplication(*actionString(run.action, "Application"),
                                              *actionString(run.action, "Key"),
                                              *run.action.find("NewValue"), defaults);
    return true;
}

bool runCommand(InstallCommand command, ActionRun& run) {
    switch (command) {
        case InstallCommand::Delete: return runDelete(run);
        case InstallCommand::UpdateFiles: return runUpdateFiles(run);
        case InstallCommand::InstallPkg: return runInstallPkg(run);
        case InstallCommand::InstallApp: return runInstallApp(run);
        case InstallCommand::InstallDaemon: return runInstallDaemon(run);
        case InstallCommand::UpdateSetting: return runUpdateSetting(run);
        case InstallCommand::UpdateSelf: return true;
    }
    return false;
}

// Runs one action; false stops the script.
bool runAction(const PlistDictionary& action, KoraInstaller& installer, const KoraUpdate& update,
               ScriptOutcome& outcome) {
    const PlistValue* command = action.find("Command");
    if (command == nullptr) return true;
    ActionRun run{installer, update, action};
    const std::string* name = command->as<std::string>();
    const InstallCommandInfo* info = name != nullptr ? matchInstallCommand(*name) : nullptr;
    if (info == nullptr) {
        logError("Error: Unknown command\n");
        return false;
    }
    if (info->command == InstallCommand::UpdateSelf) {
        outcome.selfUpdate = true;
        return true;
    }
    logInfo("Performing %s\n", std::string(info->name).c_str());
    if (const auto error = actionSyntaxError(info->command, action)) {
        logInfo("%s", error->c_str());
        return false;
    }
    return runCommand(info->command, run);
}

}  // namespace

ScriptOutcome runInstallActions(const PlistValue* actions, KoraInstaller& installer,
                                const KoraUpdate& update) {
    ScriptOutcome outcome;
    if (actions == nullptr) return outcome;
    const PlistValue::Array* list = actions->as<PlistValue::Array>();
    if (list == nullptr) {
        logError("%s", kActionsNotAnArrayLine);
        outcome.succeeded = false;
        return outcome;
    }
    for (std::size_t index = 0; index < list->size(); ++index) {
        const PlistDictionary* action = (*list)[index].as<PlistDictionary>();
        if (action == nullptr) {
            logError("%s", actionNotADictionaryLine(index + 1).c_str());
            outcome.succeeded = false;
            break;
        }
        if (!runAction(*action, installer, update, outcome)) {
            outcome.succeeded = false;
            break;
        }
    }
    return outcome;
}

}  // namespace kora
