#pragma once

// The commands of an install script's "Actions": their names, the keys each
// reads and the checks that refuse an action before it runs. The interpreter
// and the archive preflight both read the script through this one header, so
// the preflight reports exactly what makes the interpreter stop. It knows
// nothing of updates or installers and needs only property lists.

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/property_list.h"

namespace kora {

enum class InstallCommand { Delete, UpdateFiles, InstallPkg, InstallApp, InstallDaemon, UpdateSetting, UpdateSelf };

enum class KeyType { String, Boolean, Any };

struct ActionKey {
    std::string_view name;
    KeyType type;
    // Path values go through the macro expansion ("@update", "@tmp", ...).
    bool translated;
};

struct InstallCommandInfo {
    InstallCommand command;
    std::string_view name;
    std::span<const ActionKey> keys;
};

namespace install_keys {
inline constexpr ActionKey kDelete[] = {{"Folder", KeyType::String, true},
                                        {"File", KeyType::String, true}};
inline constexpr ActionKey kUpdateFiles[] = {{"From", KeyType::String, true},
                                             {"To", KeyType::String, true}};
inline constexpr ActionKey kInstallPkg[] = {{"Package", KeyType::String, true}};
inline constexpr ActionKey kInstallApp[] = {{"InstallFrom", KeyType::String, true},
                                            {"InstallTo", KeyType::String, true},
                                            {"IsCompressed", KeyType::Boolean, false}};
inline constexpr ActionKey kInstallDaemon[] = {{"Identifier", KeyType::String, true},
                                               {"BinaryFile", KeyType::String, true}};
inline constexpr ActionKey kUpdateSetting[] = {{"Application", KeyType::String, false},
                                               {"Key", KeyType::String, false},
                                               {"NewValue", KeyType::Any, false},
                                               {"DefaultValues", KeyType::String, false},
                                               {"Force", KeyType::Boolean, false}};
// Read only after the script has finished, and translated then.
inline constexpr ActionKey kUpdateSelf[] = {{"Binary", KeyType::String, true}};
}  // namespace install_keys

// In the order in which a "Command" is matched.
inline constexpr std::array<InstallCommandInfo, 7> kInstallCommands{{
    {InstallCommand::Delete, "delete", install_keys::kDelete},
    {InstallCommand::UpdateFiles, "updatefiles", install_keys::kUpdateFiles},
    {InstallCommand::InstallPkg, "installpkg", install_keys::kInstallPkg},
    {InstallCommand::InstallApp, "installapp", install_keys::kInstallApp},
    {InstallCommand::InstallDaemon, "installdaemon", install_keys::kInstallDaemon},
    {InstallCommand::UpdateSetting, "updatesetting", install_keys::kUpdateSetting},
    {InstallCommand::UpdateSelf, "updateself", install_keys::kUpdateSelf},
}};

// ASCII lower case: every name the scripts are matched against is ASCII.
inline std::string lowerCased(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : char(c); });
    return lower;
}

// The command a "Command" value names, compared without regard to case; none
// for an unknown name.
inline const InstallCommandInfo* matchInstallCommand(std::string_view value) {
    const std::string lower = lowerCased(value);
    for (const InstallCommandInfo& info : kInstallCommands) {
        if (lower == info.name) return &info;
    }
    return nullptr;
}

// A key's text; a value of another type counts as missing, so a script cannot
// hand a number or a dictionary to a path.
inline std::optional<std::string> actionString(const PlistDictionary& action, std::string_view key) {
    return action.string(key);
}

// A flag that is absent is false. A flag of another type is refused by
// actionSyntaxError before it is read.
inline bool actionFlag(const PlistDictionary& action, std::string_view key) {
    const PlistValue* value = action.find(key);
    const bool* flag = value != nullptr ? value->as<bool>() : nullptr;
    return flag != nullptr && *flag;
}

namespace install_checks {
inline std::optional<std::string> missing(const PlistDictionary& action, std::string_view key) {
    if (actionString(action, key)) return std::nullopt;
    return "Syntax error: " + std::string(key) + " missing\n";
}

inline std::optional<std::string> notAFlag(const PlistDictionary& action, std::string_view key) {
    const PlistValue* value = action.find(key);
    if (value == nullptr || value->is<bool>()) return std::nullopt;
    return "Syntax error: " + std::string(key) + " is not a boolean\n";
}

inline std::optional<std::string> firstOf(std::initializer_list<std::optional<std::string>> checks) {
    for (const auto& check : checks) {
        if (check) return check;
    }
    return std::nullopt;
}
}  // namespace install_checks

// Scripts of the wrong shape, refused with a line at error priority instead of
// being guessed at. Positions count from 1.
inline constexpr const char* kActionsNotAnArrayLine = "Error: Actions is not an array\n";
inline std::string actionNotADictionaryLine(std::size_t position) {
    return "Error: Action " + std::to_string(position) + " is not a dictionary\n";
}

// The first reason to refuse an action of `command`, as the line the
// interpreter logs, or none when the action may run.
inline std::optional<std::string> actionSyntaxError(InstallCommand command,
                                                    const PlistDictionary& action) {
    using namespace install_checks;
    switch (command) {
        case InstallCommand::Delete:
            if (actionString(action, "Folder") || actionString(action, "File")) return std::nullopt;
            return "Syntax error: File or Folder missing\n";
        case InstallCommand::UpdateFiles:
            return firstOf({missing(action, "From"), missing(action, "To")});
        case InstallCommand::InstallPkg:
            return missing(action, "Package");
        case InstallCommand::InstallApp:
            return firstOf({missing(action, "InstallFrom"), missing(action, "InstallTo"),
                            notAFlag(action, "IsCompressed")});
        case InstallCommand::InstallDaemon:
            return firstOf({missing(action, "Identifier"), missing(action, "BinaryFile")});
        case InstallCommand::UpdateSetting:
            if (!actionString(action, "Application") || !actionString(action, "Key") ||
                action.find("NewValue") == nullptr) {
                return "Syntax error: Missing values for updatesetting\n";
            }
            if (auto error = notAFlag(action, "Force")) return error;
            if (!actionFlag(action, "Force") && !actionString(action, "DefaultValues")) {
                return "Syntax error: Default values missing\n";
            }
            return std::nullopt;
        case InstallCommand::UpdateSelf:
            return std::nullopt;
    }
    return std::nullopt;
}

}  // namespace kora
