#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "catalogue_store.h"

namespace kora::service {

// A command line that cannot be carried out as written.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Where the catalogue lives unless --db says otherwise.
inline constexpr const char* kDefaultDatabase = "/var/lib/kora-service/catalogue.db";

// The words after the command's name, sorted into options and operands.
class CommandLine {
  public:
    // `valued` options take a value ("--product ID" or "--product=ID"), `flags`
    // none; "--db" is always known. Throws UsageError for anything else.
    CommandLine(const std::vector<std::string>& words, const std::set<std::string>& valued,
                const std::set<std::string>& flags);

    std::optional<std::string> value(const std::string& option) const;
    // Throws UsageError when the option is missing.
    std::string required(const std::string& option) const;
    bool flag(const std::string& option) const { return flags_.contains(option); }
    const std::vector<std::string>& operands() const { return operands_; }
    // Throws UsageError unless there are exactly `count` operands, naming them.
    void expectOperands(std::size_t count, const char* names) const;

    std::filesystem::path database() const;

  private:
    std::map<std::string, std::string> values_;
    std::set<std::string> flags_;
    std::vector<std::string> operands_;
};

// Opens the store the command line names, creating the default folder when
// it is missing. Throws StoreError.
std::unique_ptr<CatalogueStore> openStore(const CommandLine& line);

}  // namespace kora::service
