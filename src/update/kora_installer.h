#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/application_launcher.h"
#include "platform/property_list.h"
#include "platform/reachability.h"
#include "platform/running_applications.h"
#include "platform/tool_runner.h"
#include "platform/user_preferences.h"
#include "platform/workspace.h"

namespace kora {

class KoraUpdate;

// The fixed places the installer reads and writes. Production uses the
// defaults as they stand; tests point them at temporary folders.
struct InstallerPaths {
    // The registry file, read directly for an application's bundle path.
    std::filesystem::path registryFile = "/Library/Preferences/com.olvara.korad.plist";
    // What "@applications" and "@tmp" stand for.
    std::string applications = "/Applications";
    std::string tmp = "/tmp";
    // An installed daemon's job file and executable; "%@" is the identifier.
    std::string jobFile = "/Library/LaunchDaemons/%@.plist";
    std::string installedExecutable = "/Library/PrivilegedHelperTools/%@";
    // The folder of user homes.
    std::filesystem::path users = "/Users/";
};

// Everything a KoraInstaller is built with. The services are not owned and
// must outlive the installer.
struct KoraInstallerContext {
    InstallerPaths paths;
    ToolTable tools;
    ToolRunner& runner;
    const Workspace& workspace;
    RunningApplications& runningApplications;
    ApplicationLauncher& launcher;
    Reachability& reachability;
    UserPreferences& userPreferences;
    // The host whose reachability decides HasInternetConnection.
    std::string reachabilityHost;
    // The pause between writing a daemon's files and loading it, which gives
    // the file system and the service manager time to see the new files.
    std::chrono::milliseconds daemonLoadPause{1000};
};

// The host the reachability test asks about: the host of the update service's
// address (empty when the address has none). The daemon lets
// KORAD_REACHABILITY_HOST override it in development and end-to-end runs.
std::string KoraReachabilityHost(const std::string& serviceAddress);

// The live platform services, owned together for the daemon's lifetime.
struct LiveInstallerServices {
    LiveToolRunner runner;
    LiveRunningApplications runningApplications;
    LiveApplicationLauncher launcher;
    LiveReachability reachability;
    LiveUserPreferences userPreferences;

    // The production context: fixed paths, the live tool table, these services
    // and the given reachability host. `workspace` must outlive the installer.
    KoraInstallerContext context(const Workspace& workspace, std::string reachabilityHost);
};

// The toolbox the install script runs on: expanding path macros, running
// tools, installing applications and daemons, changing every user's
// preferences, stopping and starting applications, digests, and the
// reachability test of the check sequence.
//
// Every operation runs on the calling thread and returns when its work,
// external tools included, has ended. No operation lets an exception escape:
// each logs its own failure line and answers with its failure result. The
// only state is which user ran each application that KillApplication stopped,
// so that StartApplication can start it again as that user.
class KoraInstaller {
  public:
    using Bytes = std::vector<std::uint8_t>;
    using OptionalString = std::optional<std::string>;

    explicit KoraInstaller(KoraInstallerContext context);
    KoraInstaller(const KoraInstaller&) = delete;
    KoraInstaller& operator=(const KoraInstaller&) = delete;

    // Expands the path macros of an install script value: every "@update" (the
    // update's archive path without its extension), "@applications", "@tmp",
    // then the first remaining "@IDENTIFIER" (up to the next "/") with the
    // registry's bundle path for it, else the workspace's; unchanged when
    // neither knows it. A failure logs "Exception while translating kora
    // string: %s\n" and "The string is: %s\n" and returns the text as far as it
    // was expanded.
    std::string TranslateKoraString(const std::string& text, const KoraUpdate& update) const;

    // The "bundlePath" of the registry entry for the identifier, read from the
    // registry file on disk; none when the file, its "KoraDB" dictionary or the
    // entry is missing, or the entry's path is not a string.
    OptionalString FindPathForIdentifier(std::string_view identifier) const;

    // Runs the tool the table maps `tool` to (see ToolRunner::run) and returns
    // its standard output; `resultCode` is -1 when the tool cannot be started.
    Bytes PerformTask(std::string_view tool, const std::vector<std::string>& arguments,
                      int& resultCode) const;

    // Replaces `destination` by a copy of `source` (contents and attributes),
    // then makes it mode 755 throughout. The copy is made beside the
    // destination and takes its place only when complete, so a failed copy
    // leaves the installed application as it was. True when the copy and the
    // replacement succeeded and chmod answered 0.
    bool InstallApplication(const std::string& source, const std::string& destination) const;

    // Unpacks a zip archive into the folder `destination`. The archive's
    // top-level items (as `unzip -Z1` lists them) replace the items of the same
    // names and get mode 755; other items in the folder keep their contents and
    // modes. True when making room succeeded and chmod on the unpacked items
    // answered 0; an archive that cannot be listed, or lists nothing, gives false.
    bool InstallCompressedApplication(const std::string& archive,
                                      const std::string& destination) const;

    // Installs `binary` as a privileged daemon: its embedded job description
    // (section "__launchd_plist"), pointed at the installed executable, becomes
    // the job file; an earlier job is unloaded and its files removed; the new
    // job is loaded after a pause. Missing folders are made, and a leftover
    // executable without a job file is replaced. Only the loading decides the
    // result.
    bool InstallDaemonWithIdentifier(const std::string& identifier, const std::string& binary) const;

    // The property list in section `section` of the "__TEXT" segment of the
    // executable, or none. (A value that is not a dictionary is returned as it
    // is; the daemon installation refuses it.)
    std::optional<PlistValue> ExtractPlist(std::string_view section,
                                           const std::filesystem::path& binary) const;

    // Sets `key` to `value` in the application's preference file in every
    // user's home ("Shared" passed over). With `defaults`, only a user whose
    // current value equals one of them, compared as text, is changed. True when
    // at least one file was written; false, without a log line, on any error
    // (the remaining users are then not visited).
    bool UpdateSettingForApplication(const std::string& identifier, const std::string& key,
                                     const PlistValue& value,
                                     const std::optional<std::vector<std::string>>& defaults) const;

    // Asks every running instance of the application to quit (SIGTERM), without
    // waiting. False for an absent identifier; true otherwise, also when
    // nothing runs. Remembers the user who ran it for StartApplication.
    bool KillApplication(const OptionalString& identifier);

    // Starts the application again, never as root: as the user whose instance
    // KillApplication stopped, else the bundle folder's owner when that is not
    // root, else not at all (one log line says why). True unless an error was
    // raised, also when no bundle was found.
    bool StartApplication(const OptionalString& identifier);

    // Upper-case hexadecimal digests: SHA-1 of a file (streamed, constant
    // memory; a file that cannot be read, or whose reading fails part-way, is
    // hashed as empty content) and MD5 of bytes.
    static std::string getSHA1HashForFile(const std::filesystem::path& file);
    static std::string md5(std::span<const std::uint8_t> bytes);

    // True when the reachability host is reachable without first setting up a
    // connection.
    bool HasInternetConnection() const;

  private:
    // Runs chmod -R 755 on the paths; true when it answered 0.
    bool madeMode755(const std::vector<std::string>& paths) const;
    std::optional<uid_t> userToStartAs(const std::string& identifier,
                                       const std::filesystem::path& bundle);

    KoraInstallerContext context_;
    // Who ran each application that KillApplication stopped, by identifier.
    std::map<std::string, uid_t, std::less<>> stoppedBy_;
};

}  // namespace kora
