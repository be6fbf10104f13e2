// Changing an application's preferences in every user's home.
#include <algorithm>
#include <cctype>
#include <stdexcept>
#include <system_error>

#include "update/kora_installer.h"

namespace kora {
namespace {

namespace fs = std::filesystem;

bool isSharedHome(const fs::path& home) {
    std::string name = home.filename().string();
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return name == "shared";
}

// The folders in the homes folder, in name order (the order of a raw listing
// is an accident of the file system). An unreadable folder lists none.
std::vector<fs::path> userHomes(const fs::path& users) {
    std::vector<fs::path> homes;
    std::error_code error;
    for (fs::directory_iterator it(users, error), end; !error && it != end; it.increment(error)) {
        std::error_code typeError;
        if (fs::is_directory(it->path(), typeError)) homes.push_back(it->path());
    }
    std::sort(homes.begin(), homes.end());
    return homes;
}

// Whether the current value is one of the defaults, compared as text. Only a
// text can be compared: any other current value is an error.
bool matchesDefault(const PlistValue* current, const std::vector<std::string>& defaults) {
    if (current == nullptr) return false;
    for (const std::string& entry : defaults) {
        const std::string* text = current->as<std::string>();
        if (text == nullptr) throw std::invalid_argument("the current value is not a text");
        if (*text == entry) return true;
    }
    return false;
}

}  // namespace

bool KoraInstaller::UpdateSettingForApplication(
    const std::string& identifier, const std::string& key, const PlistValue& value,
    const std::optional<std::vector<std::string>>& defaults) const {
    bool written = false;
    try {
        for (const fs::path& home : userHomes(context_.paths.users)) {
            if (isSharedHome(home)) continue;
            const fs::path file = home / "Library/Preferences" / (identifier + ".plist");
            std::optional<PlistDictionary> preferences =
                context_.userPreferences.readDictionary(home, file);
            if (!preferences) continue;
            if (defaults && !matchesDefault(preferences->find(key), *defaults)) continue;
            preferences->set(key, value);
            // Whether the write succeeded does not change the answer.
            context_.userPreferences.writeDictionary(home, file, *preferences);
            written = true;
        }
    } catch (const std::exception&) {
        return false;
    }
    return written;
}

}  // namespace kora
