#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "support/command.h"
#include "support/temp_dir.h"
#include "support/zip_writer.h"

namespace kora::test {

// A kora-service database in a temporary folder, and the real program run on it.
class ServiceCatalogue {
  public:
    std::string database() const { return (folder_.path() / "catalogue.db").string(); }
    const std::filesystem::path& folder() const { return folder_.path(); }

    CommandOutcome run(std::vector<std::string> words) const {
        const bool ownDatabase = std::any_of(words.begin(), words.end(), [](const std::string& word) {
            return word.starts_with("--db");
        });
        if (!ownDatabase) words.push_back("--db=" + database());
        words.insert(words.begin(), KORA_SERVICE_BINARY);
        return runCommand(words, ErrorStream::apart);
    }

    // An archive "<folder>.zip" whose update.plist holds `actions`, the inside
    // of an "Actions" array.
    std::filesystem::path archive(const std::string& folder, const std::string& actions = "") const {
        const std::filesystem::path path = folder_.path() / (folder + ".zip");
        ZipWriter()
            .folder(folder + "/")
            .file(folder + "/update.plist",
                  "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict>"
                  "<key>Actions</key><array>" + actions + "</array></dict></plist>")
            .write(path);
        return path;
    }

    // Publishes a good archive and returns its UpdateID.
    std::string publish(const std::string& folder, std::vector<std::string> options) const {
        options.insert(options.begin(), {"publish", archive(folder).string()});
        const CommandOutcome outcome = run(options);
        std::string updateId = outcome.output;
        if (!updateId.empty() && updateId.back() == '\n') updateId.pop_back();
        return outcome.status == 0 ? updateId : "failed: " + outcome.errors;
    }

  private:
    TempDir folder_;
};

}  // namespace kora::test
