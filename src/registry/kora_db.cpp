#include "registry/kora_db.h"

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/logging.h"
#include "platform/plist_xml_writer.h"
#include "update/kora_update_delegate.h"

namespace kora {
namespace {

namespace fs = std::filesystem;

template <typename Table>
typename Table::mapped_type lookUp(const Table& table, const std::optional<std::string>& key) {
    if (!key) return nullptr;
    const auto found = table.find(*key);
    return found == table.end() ? nullptr : found->second;
}

bool somethingExistsAt(const std::optional<std::string>& path) {
    std::error_code error;
    return path && !path->empty() && fs::exists(*path, error);
}

}  // namespace

KoraDB::KoraDB(const Workspace& workspace) : KoraDB(kDefaultPath, workspace) {}

KoraDB::KoraDB(fs::path path, const Workspace& workspace, fs::path preferencesFolder,
               std::size_t maxFileBytes)
    : dbPath_(std::move(path)),
      preferencesFolder_(std::move(preferencesFolder)),
      workspace_(workspace),
      file_(dbPath_, maxFileBytes) {
    removeLeftoverTemporaries(dbPath_);
    load();
}

KoraDB::~KoraDB() {
    try {
        syncDB();
    } catch (...) {
        // Nothing can be done about a failed last write while shutting down.
    }
}

void KoraDB::load() {
    const std::optional<PlistDictionary> root = file_.readRoot();
    if (!root) {
        std::error_code error;
        if (fs::exists(fs::symlink_status(dbPath_, error))) {
            logInfo("The registry %s cannot be read; it starts empty", dbPath_.c_str());
        }
        return;
    }
    // Sections or entries of another shape than a dictionary are skipped.
    if (const PlistDictionary* section = root->dictionary("KoraDB")) {
        for (const auto& [identifier, value] : section->entries()) {
            if (const auto* entry = value.as<PlistDictionary>()) {
                applications_[identifier] = std::make_shared<KoraApplication>(identifier, *entry);
            }
        }
    }
    if (const PlistDictionary* section = root->dictionary("UpdateDB")) {
        for (const auto& [identifier, value] : section->entries()) {
            if (const auto* stored = value.as<PlistDictionary>()) {
                updatesInProgress_[identifier] = std::make_shared<KoraUpdate>(*stored);
            }
        }
    }
}

std::shared_ptr<KoraUpdate> KoraDB::getUpdateInfoForIdentifier(
    const OptionalString& identifier) const {
    std::lock_guard lock(dbMutex_);
    return lookUp(updatesInProgress_, identifier);
}

RegistryWrite KoraDB::updateInfoForUpdateWithIdentifier(const OptionalString& identifier,
                                                        std::shared_ptr<KoraUpdate> update) {
    std::lock_guard lock(dbMutex_);
    if (!identifier || !update) return RegistryWrite::Written;
    updatesInProgress_[*identifier] = std::move(update);
    PlistDictionary section;
    for (const auto& [key, stored] : updatesInProgress_) {
        // A finished update is kept for this run only, so its application gets
        // no new offer until the daemon restarts.
        if (stored->installationComplete() && stored->downloadComplete()) continue;
        section.set(key, PlistValue(stored->serialize()));
    }
    return writeRootKey("UpdateDB", [&section](std::string& text, std::size_t depth) {
        return appendPlistXml(text, section, depth);
    });
}

KoraDB::UpdateTable KoraDB::currentUpdates() const {
    return updatesInProgress_;
}

void KoraDB::setDelegate(KoraUpdateDelegate* delegate) {
    std::lock_guard lock(dbMutex_);
    for (const auto& [identifier, update] : updatesInProgress_) update->setDelegate(delegate);
}

KoraDB::ApplicationTable KoraDB::registeredApplications() const {
    return applications_;
}

std::shared_ptr<KoraApplication> KoraDB::registeredApplicationForIdentifier(
    const OptionalString& identifier) const {
    std::lock_guard lock(dbMutex_);
    return lookUp(applications_, identifier);
}

void KoraDB::addApplicationWithIdentifier(const OptionalString& identifier,
                                          const OptionalString& installationID,
                                          const OptionalString& productID,
                                          const OptionalString& appVersion,
                                          const OptionalString& bundlePath,
                                          const OptionalString& appBrand) {
    std::lock_guard lock(dbMutex_);
    if (!identifier) return;
    auto application = std::make_shared<KoraApplication>();
    application->setIdentifier(identifier);
    application->setInstallationID(installationID);
    application->setProductID(productID);
    application->setLastKnownVersion(appVersion);
    application->setBundlePath(bundlePath);
    application->setBrand(appBrand);
    applications_[*identifier] = std::move(application);
}

void KoraDB::updateApplication(const OptionalString& identifier, const OptionalString& bundlePath,
                               const OptionalString& version) {
    std::lock_guard lock(dbMutex_);
    if (!identifier) return;
    if (const auto known = lookUp(applications_, identifier)) {
        known->setBundlePath(bundlePath);
        known->setLastKnownVersion(version);
        return;
    }
    auto application = std::make_shared<KoraApplication>();
    application->setIdentifier(identifier);
    application->setBundlePath(bundlePath);
    application->setLastKnownVersion(version);
    const IdentityValues identity =
        readIdentityValues(*identifier)
            .value_or(IdentityValues{kZeroIdentifier, kZeroIdentifier, kUnknownBrand});
    application->setInstallationID(identity.installationID);
    application->setProductID(identity.productID);
    application->setBrand(identity.brand);
    applications_[*identifier] = std::move(application);
}

void KoraDB::removeApplicationWithIdentifier(const OptionalString& identifier) {
    std::lock_guard lock(dbMutex_);
    if (identifier) applications_.erase(*identifier);
}

RegistryWrite KoraDB::syncDB() {
    std::lock_guard lock(dbMutex_);
    // Each entry goes into the file's text as soon as it is made: a tree of
    // thousands of entries, made and freed at every write, cost more time than
    // the rest of the write and left the heap fragmented.
    return writeRootKey("KoraDB", [this](std::string& text, std::size_t depth) {
        const bool empty = applications_.empty();
        appendPlistXmlOpening(text, "dict", empty, depth);
        for (const auto& [identifier, application] : applications_) {
            appendPlistXmlKey(text, identifier, depth + 1);
            appendPlistXml(text, application->serialize(), depth + 1);
        }
        appendPlistXmlClosing(text, "dict", empty, depth);
        return true;
    });
}

KoraDB::SavedApplication KoraDB::saveApplication(const OptionalString& identifier) const {
    std::lock_guard lock(dbMutex_);
    const auto record = lookUp(applications_, identifier);
    return SavedApplication{record, record ? *record : KoraApplication{}};
}

void KoraDB::restoreApplication(const OptionalString& identifier, const SavedApplication& saved) {
    std::lock_guard lock(dbMutex_);
    if (!identifier) return;
    if (!saved.record) {
        applications_.erase(*identifier);
        return;
    }
    // The live record itself goes back, so copies of the table handed out
    // earlier still hold the record the table holds.
    *saved.record = saved.fields;
    applications_[*identifier] = saved.record;
}

bool KoraDB::updateInstalledApplications() {
    std::lock_guard lock(dbMutex_);
    // Removal waits until the walk is over, so the table never shrinks under it.
    std::vector<std::string> vanished;
    for (const auto& [identifier, application] : applications_) {
        if (somethingExistsAt(application->bundlePath())) continue;
        const auto bundle = workspace_.absolutePathForAppBundleWithIdentifier(identifier);
        if (!bundle) {
            vanished.push_back(identifier);
            continue;
        }
        followMovedBundle(identifier, *application, *bundle);
    }
    for (const std::string& identifier : vanished) applications_.erase(identifier);
    return true;
}

void KoraDB::followMovedBundle(const std::string& identifier, KoraApplication& application,
                               const fs::path& bundle) const {
    const fs::path infoPath = bundle.string() + "/Contents/Info.plist";
    std::error_code error;
    if (fs::exists(infoPath, error)) {
        if (const auto info = readPropertyListDictionary(infoPath)) {
            if (auto version = info->string("CFBundleShortVersionString")) {
                application.setLastKnownVersion(std::move(version));
            }
        }
        // An unreadable preference file keeps the identity values as they were.
        if (const auto identity = readIdentityValues(identifier)) {
            application.setInstallationID(identity->installationID);
            application.setProductID(identity->productID);
            application.setBrand(identity->brand);
        }
    }
    application.setBundlePath(bundle.string());
}

std::optional<KoraDB::IdentityValues> KoraDB::readIdentityValues(
    const std::string& identifier) const {
    // Identifiers come from clients. One holding '/' could lead this root
    // process to another folder's .plist and copy its values into the registry,
    // which everyone can read; bundle identifiers never hold one.
    if (identifier.find('/') != std::string::npos) return std::nullopt;
    const std::string path = (preferencesFolder_ / "").string() + identifier + ".plist";
    const auto preferences = readPropertyListDictionary(path);
    if (!preferences) return std::nullopt;
    return IdentityValues{preferences->string("InstallationID").value_or(kZeroIdentifier),
                          preferences->string("ProductID").value_or(kZeroIdentifier),
                          preferences->string("MVNO").value_or(kUnknownBrand)};
}

RegistryWrite KoraDB::writeRootKey(const char* key, const RegistryFile::ValueLines& section) {
    // Missing or unreadable: the file gets this writer's section only. A failed
    // write changes nothing in memory; the next write tries again with the
    // state then.
    const RegistryWrite outcome = file_.replaceRootKey(key, section);
    if (outcome == RegistryWrite::Failed && !writeFailureLogged_) {
        logInfo("Cannot write the registry %s: %s", dbPath_.c_str(), std::strerror(errno));
        writeFailureLogged_ = true;
    } else if (outcome == RegistryWrite::Written) {
        writeFailureLogged_ = false;
    }
    return outcome;
}

}  // namespace kora
