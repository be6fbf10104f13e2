#include "command_line.h"

#include "sqlite_catalogue_store.h"

namespace kora::service {

CommandLine::CommandLine(const std::vector<std::string>& words, const std::set<std::string>& valued,
                         const std::set<std::string>& flags) {
    bool optionsEnded = false;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (optionsEnded || !word.starts_with("--")) {
            operands_.push_back(word);
            continue;
        }
        if (word == "--") {
            optionsEnded = true;
            continue;
        }
        const std::size_t equals = word.find('=');
        const std::string name = word.substr(2, equals == std::string::npos ? equals : equals - 2);
        if (flags.contains(name) && equals == std::string::npos) {
            flags_.insert(name);
        } else if (valued.contains(name) || name == "db") {
            if (equals != std::string::npos) {
                values_[name] = word.substr(equals + 1);
            } else if (i + 1 < words.size()) {
                values_[name] = words[++i];
            } else {
                throw UsageError("--" + name + " needs a value");
            }
        } else {
            throw UsageError("unknown option " + word);
        }
    }
}

std::optional<std::string> CommandLine::value(const std::string& option) const {
    const auto found = values_.find(option);
    if (found == values_.end()) return std::nullopt;
    return found->second;
}

std::string CommandLine::required(const std::string& option) const {
    const std::optional<std::string> found = value(option);
    if (!found || found->empty()) throw UsageError("--" + option + " is required");
    return *found;
}

void CommandLine::expectOperands(std::size_t count, const char* names) const {
    if (operands_.size() == count) return;
    if (operands_.size() > count) {
        throw UsageError("unexpected operand '" + operands_[count] + "'");
    }
    throw UsageError(std::string("missing ") + names);
}

std::filesystem::path CommandLine::database() const {
    const std::optional<std::string> path = value("db");
    if (path && path->empty()) throw UsageError("--db needs a path");
    return path.value_or(kDefaultDatabase);
}

std::unique_ptr<CatalogueStore> openStore(const CommandLine& line) {
    const std::filesystem::path database = line.database();
    if (database == kDefaultDatabase) {
        std::error_code ignored;  // opening reports what is wrong
        std::filesystem::create_directories(database.parent_path(), ignored);
    }
    return std::make_unique<SqliteCatalogueStore>(database);
}

}  // namespace kora::service
