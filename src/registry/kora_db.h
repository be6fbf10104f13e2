#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/input_limits.h"
#include "platform/machine_facts.h"
#include "platform/property_list.h"
#include "platform/workspace.h"
#include "registry/kora_application.h"
#include "registry/registry_file.h"
#include "update/kora_update.h"

namespace kora {

class KoraUpdateDelegate;

// The daemon's persistent memory: the registered applications and the updates
// in progress, kept in memory and written to one property-list file under the
// root keys "KoraDB" and "UpdateDB". RegistryFile says who writes the file when.
// No write makes the file larger than its reader accepts: such a write is
// skipped, and the caller may put the change back (saveApplication,
// restoreApplication).
class KoraDB {
  public:
    using OptionalString = std::optional<std::string>;
    using ApplicationTable = std::map<std::string, std::shared_ptr<KoraApplication>>;
    using UpdateTable = std::map<std::string, std::shared_ptr<KoraUpdate>>;

    static constexpr const char* kDefaultPath = "/Library/Preferences/com.olvara.korad.plist";
    // Where each application's own preference file "<identifier>.plist" lives.
    static constexpr const char* kPreferencesFolder = "/Library/Preferences/";
    static constexpr const char* kZeroIdentifier = "00000000-0000-0000-0000-000000000000";
    static constexpr const char* kUnknownBrand = "Unknown";

    // The machine's identity as the update service receives it. Each call asks
    // `facts` afresh; nothing is kept.
    //   MachineUID: the serial number; empty when the machine has none.
    //   MachineModel: the machine name; "mac" when there is none.
    //   OperatingSystem: the name for minor release 5, 6 or 7, else none.
    //   OSEdition: "major.minor".
    //   ServicePack: the bug-fix number.
    // A release number that cannot be read counts as 0: the requests carry
    // OSEdition as text and ServicePack as a number, and 0 is what a system
    // without that part of its release number would give.
    static std::string MachineUID(const MachineFacts& facts = liveMachineFacts());
    static std::string MachineModel(const MachineFacts& facts = liveMachineFacts());
    static OptionalString OperatingSystem(const MachineFacts& facts = liveMachineFacts());
    static std::string OSEdition(const MachineFacts& facts = liveMachineFacts());
    static std::int32_t ServicePack(const MachineFacts& facts = liveMachineFacts());

    // The registry on the default file. The workspace must outlive the registry.
    explicit KoraDB(const Workspace& workspace);
    // Loads the registry kept at `path`; a missing or unreadable file gives
    // empty tables. Temporary files of writes killed halfway are removed.
    // `maxFileBytes` is the largest file written (tests lower it).
    KoraDB(std::filesystem::path path, const Workspace& workspace,
           std::filesystem::path preferencesFolder = kPreferencesFolder,
           std::size_t maxFileBytes = kPlistMaxBytes);
    // Writes the application section, so the file matches memory at the end.
    ~KoraDB();

    KoraDB(const KoraDB&) = delete;
    KoraDB& operator=(const KoraDB&) = delete;

    const std::filesystem::path& dbPath() const { return dbPath_; }

    // Updates in progress, keyed by the identifier of the application they
    // update. An entry is never removed during a run.
    std::shared_ptr<KoraUpdate> getUpdateInfoForIdentifier(const OptionalString& identifier) const;
    // Stores the update (replacing any earlier one) and rewrites "UpdateDB".
    // Updates whose download and installation are both complete stay in memory
    // but are left out of the file.
    RegistryWrite updateInfoForUpdateWithIdentifier(const OptionalString& identifier,
                                           std::shared_ptr<KoraUpdate> update);
    // A copy of the table holding the same live updates.
    UpdateTable currentUpdates() const;
    // Makes `delegate` the delegate of every update held now; not kept for later ones.
    void setDelegate(KoraUpdateDelegate* delegate);

    // A copy of the table holding the same live records.
    ApplicationTable registeredApplications() const;
    std::shared_ptr<KoraApplication> registeredApplicationForIdentifier(
        const OptionalString& identifier) const;
    // Replaces any record under the identifier with one made of exactly these
    // values. An absent identifier cannot be a key and stores nothing.
    void addApplicationWithIdentifier(const OptionalString& identifier,
                                      const OptionalString& installationID,
                                      const OptionalString& productID,
                                      const OptionalString& appVersion,
                                      const OptionalString& bundlePath,
                                      const OptionalString& appBrand);
    // A known application gets the new path and version only; an unknown one
    // is created with identity values from its own preference file.
    void updateApplication(const OptionalString& identifier, const OptionalString& bundlePath,
                           const OptionalString& version);
    // An update in progress for the identifier stays where it is.
    void removeApplicationWithIdentifier(const OptionalString& identifier);
    // Writes the application section "KoraDB".
    RegistryWrite syncDB();

    // One application's record as it is now (none when unregistered), to be
    // put back by restoreApplication when a change to it cannot be written.
    struct SavedApplication {
        std::shared_ptr<KoraApplication> record;  // the live record
        KoraApplication fields;                   // its fields before the change
    };
    SavedApplication saveApplication(const OptionalString& identifier) const;
    // Puts the saved record back under the identifier, with its fields as
    // saved, or removes the record when none was saved.
    void restoreApplication(const OptionalString& identifier, const SavedApplication& saved);
    // Follows applications whose bundle has moved and drops those that can no
    // longer be found. Always true.
    bool updateInstalledApplications();

  private:
    struct IdentityValues {
        std::string installationID;
        std::string productID;
        std::string brand;
    };

    void load();
    // The identity values of the application's own preference file, each
    // defaulted by itself; none when the file cannot be read.
    std::optional<IdentityValues> readIdentityValues(const std::string& identifier) const;
    void followMovedBundle(const std::string& identifier, KoraApplication& application,
                           const std::filesystem::path& bundle) const;
    // Replaces one root key of the file and writes it; logs a failure once.
    RegistryWrite writeRootKey(const char* key, const RegistryFile::ValueLines& section);

    std::filesystem::path dbPath_;
    std::filesystem::path preferencesFolder_;
    const Workspace& workspace_;
    ApplicationTable applications_;
    UpdateTable updatesInProgress_;
    mutable std::mutex dbMutex_;
    RegistryFile file_;
    // A write that fails is logged once, not at every tick, until one succeeds.
    bool writeFailureLogged_ = false;
};

}  // namespace kora
