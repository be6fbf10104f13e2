// Installing applications and daemons.
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "platform/logging.h"
#include "update/kora_installer.h"

namespace kora {
namespace {

namespace fs = std::filesystem;

bool exists(const fs::path& path) {
    std::error_code error;
    return fs::exists(path, error);
}

// Makes the folder, with its missing parents, when nothing is there yet; false
// when that failed.
bool folderPresent(const std::string& folder) {
    std::error_code error;
    return exists(folder) || fs::create_directories(folder, error);
}

// A name beside `path` for the new copy, not guessable in advance.
fs::path stagingPathFor(const fs::path& path) {
    std::random_device random;
    return path.parent_path() / ("." + path.filename().string() + ".korad-" + std::to_string(random()));
}

// The item a destination names, without a trailing separator. One that names
// no item of its own (the root folder, "", "." or "..") is refused: replacing it
// would remove far more than an application.
fs::path replacedItem(const std::string& destination) {
    fs::path item = fs::path(destination).lexically_normal();
    if (!item.has_filename()) item = item.parent_path();
    if (!item.has_filename() || item.filename() == "." || item.filename() == "..") {
        throw std::invalid_argument("the destination \"" + destination + "\" names no application");
    }
    return item;
}

// Copies `source` to the new path `target` with its contents, modes and
// symbolic links; a partial copy is removed again.
std::error_code copyItem(const fs::path& source, const fs::path& target) {
    std::error_code error;
    if (!fs::exists(fs::symlink_status(source, error))) {
        return std::make_error_code(std::errc::no_such_file_or_directory);
    }
    fs::copy(source, target, fs::copy_options::recursive | fs::copy_options::copy_symlinks, error);
    if (error) {
        std::error_code ignored;
        fs::remove_all(target, ignored);
    }
    return error;
}

// The names of the items at the top of a zip archive, as `unzip -Z1` lists
// them. A name that would lead out of the destination ("..", an empty name) is
// left out; unzip drops a leading "/" when it unpacks, and so does this.
std::set<std::string> topLevelItems(const std::vector<std::uint8_t>& listing) {
    std::set<std::string> items;
    std::istringstream lines(std::string(listing.begin(), listing.end()));
    for (std::string line; std::getline(lines, line);) {
        const std::size_t start = line.find_first_not_of('/');
        if (start == std::string::npos) continue;
        const std::string item = line.substr(start, line.find('/', start) - start);
        if (item != "." && item != "..") items.insert(item);
    }
    return items;
}

std::string fill(const std::string& pattern, const std::string& identifier) {
    std::string text = pattern;
    const std::size_t at = text.find("%@");
    if (at != std::string::npos) text.replace(at, 2, identifier);
    return text;
}

// An identifier becomes a file name: one that names another folder or none is refused.
void checkDaemonIdentifier(const std::string& identifier) {
    if (identifier.empty() || identifier == "." || identifier == ".." ||
        identifier.find('/') != std::string::npos || identifier.find('\0') != std::string::npos) {
        throw std::invalid_argument("the daemon identifier \"" + identifier + "\" names no file");
    }
}

}  // namespace

bool KoraInstaller::InstallApplication(const std::string& source, const std::string& destination) const {
    try {
        const std::string target = destination + "/";
        if (!folderPresent(target))
            logInfo("Error creating folder: %s \n", loggable(target).c_str());
        // The new copy is made beside the destination first and takes its place
        // only when complete, so a copy that fails leaves the installed
        // application as it was. The destination entry itself is replaced; a
        // symbolic link there is not followed.
        const fs::path installed = replacedItem(destination);
        const fs::path staging = stagingPathFor(installed);
        if (copyItem(source, staging)) return false;
        std::error_code error;
        fs::remove_all(installed, error);
        if (!error) fs::rename(staging, installed, error);
        if (error) {
            std::error_code ignored;
            fs::remove_all(staging, ignored);
            return false;
        }
        return madeMode755({target});
    } catch (const std::exception& error) {
        logInfo("Exception while installing application: %s\n", loggable(error.what()).c_str());
        return false;
    }
}

bool KoraInstaller::InstallCompressedApplication(const std::string& archive,
                                                 const std::string& destination) const {
    try {
        const std::string target = destination + "/";
        if (!folderPresent(target))
            logInfo("Error creating folder: %s\n", loggable(target).c_str());
        // Only the archive's own top-level items make room and get mode 755;
        // whatever else the folder holds keeps its contents and modes. An
        // archive that cannot be listed, or lists nothing, installs nothing.
        int resultCode = -1;
        const std::set<std::string> items =
            topLevelItems(PerformTask(ToolTable::kUnzip, {"-Z1", archive}, resultCode));
        if (resultCode != 0 || items.empty()) return false;
        std::vector<std::string> unpacked;
        for (const std::string& item : items) {
            std::error_code error;
            fs::remove_all(fs::path(target) / item, error);
            if (error) return false;
            unpacked.push_back(target + item);
        }
        resultCode = -1;
        PerformTask(ToolTable::kUnzip, {"-u", "-d", target, archive}, resultCode);
        return madeMode755(unpacked);
    } catch (const std::exception& error) {
        logInfo("Exception while installing compressed application: %s\n",
                loggable(error.what()).c_str());
        return false;
    }
}

bool KoraInstaller::madeMode755(const std::vector<std::string>& paths) const {
    std::vector<std::string> arguments{"-R", "755"};
    arguments.insert(arguments.end(), paths.begin(), paths.end());
    int resultCode = -1;
    PerformTask(ToolTable::kChmod, arguments, resultCode);
    return resultCode == 0;
}

bool KoraInstaller::InstallDaemonWithIdentifier(const std::string& identifier,
                                                const std::string& binary) const {
    int resultCode = -1;
    const std::string jobFile = fill(context_.paths.jobFile, identifier);
    const std::string installed = fill(context_.paths.installedExecutable, identifier);
    logInfo("Trying to install daemon: %s to installpath: %s\n", loggable(identifier).c_str(),
            loggable(installed).c_str());
    try {
        checkDaemonIdentifier(identifier);
        std::optional<PlistValue> job = ExtractPlist("__launchd_plist", binary);
        if (job && !job->is<PlistDictionary>()) {
            throw std::invalid_argument("the job description of " + binary + " is not a dictionary");
        }
        if (job) job->as<PlistDictionary>()->set("ProgramArguments", PlistValue::Array{installed});

        if (exists(jobFile)) {
            logInfo("Have to clean old files\n");
            int unloadCode = -1;
            PerformTask(ToolTable::kLaunchctl, {"unload", jobFile}, unloadCode);
            std::error_code jobError, binaryError;
            fs::remove(jobFile, jobError);
            if (!fs::remove(installed, binaryError) && !binaryError) {
                binaryError = std::make_error_code(std::errc::no_such_file_or_directory);
            }
            if (jobError || binaryError) {
                const std::string description = (binaryError ? binaryError : jobError).message();
                logInfo("Error happened during removal of old files: %s\n",
                        loggable(description).c_str());
            }
        }

        // The folders may not exist yet on a fresh system; a description that
        // cannot be written is noticed when loading fails.
        std::error_code error;
        fs::create_directories(fs::path(jobFile).parent_path(), error);
        fs::create_directories(fs::path(installed).parent_path(), error);
        if (job) writePropertyList(*job, jobFile);
        logInfo("New plist written\n");

        // A leftover executable without a job file is replaced too.
        fs::copy_file(binary, installed, fs::copy_options::overwrite_existing, error);
        if (error) {
            logInfo("Error happened during writing the binary: %s\n",
                    loggable(error.message()).c_str());
        } else {
            logInfo("Binary written\n");
        }

        std::this_thread::sleep_for(context_.daemonLoadPause);
        PerformTask(ToolTable::kLaunchctl, {"load", jobFile}, resultCode);
        const bool installedDaemon = resultCode == 0;
        if (installedDaemon) logInfo("Installed deamon successfully\n");
        logInfo("Will return from method\n");
        return installedDaemon;
    } catch (const std::exception& error) {
        logInfo("Exception while installing daemon: %s\n", loggable(error.what()).c_str());
        return false;
    }
}

}  // namespace kora
