#include "preflight/archive_preflight.h"

#include <functional>
#include <set>
#include <string_view>

#include "platform/input_limits.h"
#include "platform/property_list.h"
#include "preflight/zip_directory.h"
#include "preflight/install_commands.h"

namespace kora {
namespace {

namespace fs = std::filesystem;
using Severity = PreflightProblem::Severity;
using Problems = std::vector<PreflightProblem>;

constexpr const char* kUnreadableScript = "\"Error unzipping or parsing script\"";

std::string inQuotes(std::string_view text) { return "\"" + std::string(text) + "\""; }

std::string kindOf(const PlistValue& value) {
    static constexpr const char* kinds[] = {"text",   "a number", "a real number", "a boolean",
                                            "a date", "data",     "an array",      "a dictionary"};
    return kinds[value.storage().index()];
}

std::vector<std::string_view> componentsOf(std::string_view name) {
    std::vector<std::string_view> parts;
    for (std::size_t start = 0; start <= name.size();) {
        const std::size_t end = std::min(name.find('/', start), name.size());
        parts.push_back(name.substr(start, end - start));
        start = end + 1;
    }
    return parts;
}

bool leavesItsFolder(std::string_view name) {
    if (name.starts_with('/')) return true;
    for (std::string_view part : componentsOf(name)) {
        if (part == "..") return true;
    }
    return false;
}

void checkEntries(const ZipDirectory& zip, const std::string& folder, Problems& problems) {
    std::set<std::string> strayTops;
    for (const ZipDirectory::Entry& entry : zip.entries()) {
        if (leavesItsFolder(entry.name)) {
            problems.push_back({Severity::Warning,
                                "The entry " + inQuotes(entry.name) +
                                    " would leave the unpack folder; unzip strips \"../\" and a "
                                    "leading \"/\", so it lands somewhere else than its name says"});
            continue;
        }
        const std::string top(componentsOf(entry.name).front());
        if (top != folder && strayTops.insert(top).second) {
            problems.push_back({Severity::Warning,
                                "The entry " + inQuotes(top) + " is not inside the folder " +
                                    inQuotes(folder) + " that the archive is named after; it is "
                                    "unpacked beside that folder and the script cannot name it"});
        }
        if (entry.symbolicLink) {
            const std::string target = zip.contents(entry, kMaxPathBytes).value_or("");
            if (leavesItsFolder(target)) {
                problems.push_back({Severity::Warning, "The entry " + inQuotes(entry.name) +
                                                           " is a symbolic link to " + inQuotes(target) +
                                                           ", outside the update"});
            }
        }
    }
}

// Where the script and the files it names are looked for.
struct UpdateFiles {
    std::function<std::optional<std::string>()> script;
    std::function<bool(const std::string& relative)> holds;
};

UpdateFiles filesInArchive(const ZipDirectory& zip, const std::string& folder) {
    return {
        [&zip, folder]() -> std::optional<std::string> {
            for (const ZipDirectory::Entry& entry : zip.entries()) {
                if (entry.name == folder + "/update.plist") return zip.contents(entry, kPlistMaxBytes);
            }
            return std::nullopt;
        },
        [&zip, folder](const std::string& relative) {
            const std::string path = folder + relative;
            for (const ZipDirectory::Entry& entry : zip.entries()) {
                if (entry.name == path || entry.name.starts_with(path + "/")) return true;
            }
            return false;
        },
    };
}

UpdateFiles filesInFolder(const fs::path& folder) {
    return {
        [folder]() -> std::optional<std::string> {
            const auto script = readPropertyList(folder / "update.plist");
            return script ? std::optional(propertyListXml(*script)) : std::nullopt;
        },
        [folder](const std::string& relative) {
            std::error_code error;
            return fs::exists(folder.string() + relative, error);
        },
    };
}

// Checks one action; `where` names it ("Action 3 (updatefiles)").
void checkAction(const PlistDictionary& action, const InstallCommandInfo& info, const std::string& where,
                 const UpdateFiles& files, Problems& problems) {
    bool wrongType = false;
    for (const ActionKey& key : info.keys) {
        const PlistValue* value = action.find(key.name);
        if (value == nullptr || key.type == KeyType::Any) continue;
        const bool fits = key.type == KeyType::String ? value->is<std::string>() : value->is<bool>();
        if (!fits) {
            wrongType = true;
            problems.push_back({Severity::Error, where + ": " + inQuotes(key.name) + " is " +
                                                     kindOf(*value) + ", not " +
                                                     (key.type == KeyType::String ? "text" : "a boolean")});
            continue;
        }
        const std::string* text = value->as<std::string>();
        if (key.translated && text != nullptr && text->starts_with("@update")) {
            std::string relative = text->substr(std::string_view("@update").size());
            while (relative.size() > 1 && relative.back() == '/') relative.pop_back();
            if (!relative.starts_with('/') || !files.holds(relative)) {
                problems.push_back({Severity::Warning, where + ": " + inQuotes(key.name) + " names " +
                                                           inQuotes(*text) + ", which the update does not hold"});
            }
        }
    }
    if (wrongType) return;
    if (const auto error = actionSyntaxError(info.command, action)) {
        problems.push_back({Severity::Error, where + ": the daemon would stop with " +
                                                 inQuotes(error->substr(0, error->size() - 1))});
    }
}

void checkScript(const PlistDictionary& script, const UpdateFiles& files, Problems& problems) {
    const PlistValue* actions = script.find("Actions");
    if (actions == nullptr) return;
    const PlistValue::Array* list = actions->as<PlistValue::Array>();
    if (list == nullptr) {
        problems.push_back({Severity::Error, "\"Actions\" is " + kindOf(*actions) + ", not an array"});
        return;
    }
    for (std::size_t index = 0; index < list->size(); ++index) {
        const std::string where = "Action " + std::to_string(index + 1);
        const PlistDictionary* action = (*list)[index].as<PlistDictionary>();
        if (action == nullptr) {
            problems.push_back({Severity::Error, where + " is " + kindOf((*list)[index]) + ", not a dictionary"});
            continue;
        }
        const PlistValue* command = action->find("Command");
        if (command == nullptr) {
            problems.push_back({Severity::Warning, where + " has no \"Command\" and is passed over"});
            continue;
        }
        const std::string* name = command->as<std::string>();
        const InstallCommandInfo* info = name != nullptr ? matchInstallCommand(*name) : nullptr;
        if (info == nullptr) {
            problems.push_back({Severity::Error, where + ": " +
                                                     (name != nullptr ? "unknown command " + inQuotes(*name)
                                                                      : "\"Command\" is " + kindOf(*command) + ", not text")});
            continue;
        }
        checkAction(*action, *info, where + " (" + std::string(info->name) + ")", files, problems);
    }
}

}  // namespace

std::vector<PreflightProblem> preflightUpdateArchive(const fs::path& archive,
                                                     const std::optional<fs::path>& unpackedFolder) {
    Problems problems;
    const std::string folder = archive.stem().string();
    if (!archive.has_extension()) {
        problems.push_back({Severity::Error, "The archive name " + inQuotes(archive.filename().string()) +
                                                 " has no extension: the daemon would unpack it onto "
                                                 "itself and stop with " + kUnreadableScript});
    }
    std::string error;
    const std::optional<ZipDirectory> zip = ZipDirectory::open(archive, error);
    if (!zip) {
        problems.push_back({Severity::Error, "The archive cannot be read: " + error});
        return problems;
    }
    checkEntries(*zip, folder, problems);

    const UpdateFiles files = unpackedFolder ? filesInFolder(*unpackedFolder) : filesInArchive(*zip, folder);
    const std::string scriptName = inQuotes(folder + "/update.plist");
    const std::optional<std::string> text = files.script();
    if (!text) {
        problems.push_back({Severity::Error, "The update holds no readable " + scriptName +
                                                 ": the daemon would stop with " + kUnreadableScript});
        return problems;
    }
    const auto bytes = std::span(reinterpret_cast<const std::uint8_t*>(text->data()), text->size());
    const std::optional<PlistValue> script = parsePropertyList(bytes);
    const PlistDictionary* dictionary = script ? script->as<PlistDictionary>() : nullptr;
    if (dictionary == nullptr) {
        problems.push_back({Severity::Error, scriptName + " is not a property-list dictionary: the daemon "
                                                          "would stop with " + kUnreadableScript});
        return problems;
    }
    checkScript(*dictionary, files, problems);
    return problems;
}

}  // namespace kora
