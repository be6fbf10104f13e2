#include "controller/kora_controller.h"

#include <glib.h>

#include <chrono>
#include <exception>
#include <utility>

#include "platform/logging.h"
#include "dates/stored_date.h"

namespace kora {
namespace {

// "LastKoraCheckDate" of the registry file. A missing file or key, or a text
// that yields no date, counts as a check that never happened.
Date storedLastCheckDate(const std::filesystem::path& configPath) {
    const auto value = RegistryFile(configPath).rootValue("LastKoraCheckDate");
    const std::string* text = value ? value->as<std::string>() : nullptr;
    if (text == nullptr) return kEpoch;
    return dateFromStoredText(*text).value_or(kEpoch);
}

gboolean tick(gpointer controller) {
    // Nothing may unwind into GLib; a failed tick is retried by the next one.
    try {
        static_cast<KoraController*>(controller)->checkSequence();
    } catch (const std::exception& failure) {
        logInfo("Check sequence failed, the next tick tries again: %s",
                loggable(failure.what()).c_str());
    } catch (...) {
        logInfo("Check sequence failed, the next tick tries again: unknown error");
    }
    return G_SOURCE_CONTINUE;
}

}  // namespace

KoraController::KoraController(KoraControllerSettings settings, UpdateService& service,
                               KoraInstaller& installer, SelfUpdateHelper* selfUpdateHelper)
    : dateSinceLastCheck_(storedLastCheckDate(settings.configPath)),
      lastUpdate_(kEpoch),
      configPath_(std::move(settings.configPath)),
      service_(service),
      installer_(installer),
      selfUpdateHelper_(selfUpdateHelper),
      clock_(settings.clock ? std::move(settings.clock) : std::make_shared<SystemClock>()),
      machineFacts_(settings.machineFacts ? std::move(settings.machineFacts)
                                          : std::make_shared<LiveMachineFacts>()),
      downloadFolder_(std::move(settings.downloadFolder)),
      checkDateFile_(configPath_, settings.registryMaxBytes),
      workspace_(settings.workspace ? std::move(settings.workspace)
                                    : std::make_shared<LiveWorkspace>()) {
    db_ = std::make_unique<KoraDB>(configPath_, *workspace_, settings.preferencesFolder,
                                   settings.registryMaxBytes);
    // Updates restored from the file report their outcomes here, and download
    // where new ones do.
    db_->setDelegate(this);
    for (const auto& [identifier, update] : db_->currentUpdates()) {
        update->setDownloadFolder(downloadFolder_);
    }
    isModemRoaming_ = false;
    // GLib re-arms the timer when the callback returns, so a tick is never
    // delivered in the middle of the previous one.
    timer_ = g_timeout_add(static_cast<guint>(settings.tickInterval.count()), tick, this);
}

KoraController::~KoraController() {
    if (timer_ != 0) g_source_remove(timer_);
}

bool KoraController::registerClientWith(const OptionalString& identifier,
                                        const OptionalString& installationID,
                                        const OptionalString& productID,
                                        const OptionalString& appVersion,
                                        const OptionalString& bundlePath,
                                        const OptionalString& appBrand) {
    return changeApplication(identifier, [&] {
        db_->addApplicationWithIdentifier(identifier, installationID, productID, appVersion,
                                          bundlePath, appBrand);
    });
}

bool KoraController::updateClient(const OptionalString& identifier,
                                  const OptionalString& bundlePath, const OptionalString& version) {
    return changeApplication(identifier,
                             [&] { db_->updateApplication(identifier, bundlePath, version); });
}

template <typename Change>
bool KoraController::changeApplication(const OptionalString& identifier, Change change) {
    // Nothing here turns the main loop, so no other call can come in between.
    const KoraDB::SavedApplication saved = db_->saveApplication(identifier);
    change();
    if (db_->syncDB() != RegistryWrite::TooLarge) return true;
    db_->restoreApplication(identifier, saved);
    return false;
}

bool KoraController::setRoaming(bool roaming) {
    isModemRoaming_ = roaming;
    if (roaming) {
        logInfo("Setting KORA to roaming state");
    } else {
        logInfo("Setting KORA to normal state");
    }
    return true;
}

void KoraController::forceCheck() {
    std::lock_guard lock(mainThreadLock_);
    dateSinceLastCheck_ = kEpoch;
    lastUpdate_ = kEpoch;
}

bool KoraController::uninstall(const OptionalString& identifier) {
    // The service is told before the application is forgotten, so the notice
    // can still carry its identifiers; the local removal happens whatever the
    // service answers. Other client calls are served while the notice waits.
    const auto application = db_->registeredApplicationForIdentifier(identifier);
    KORA_Uninstall notice;
    if (application) {
        notice.setInstallationID(application->installationID());
        notice.setProductID(application->productID());
    }
    if (service_.uninstall(notice).response) logInfo("Successfully notified KORA Server");
    // A removal only shrinks the application section, so it is kept even in
    // the rare case that the file cannot take the rest of memory.
    db_->removeApplicationWithIdentifier(identifier);
    db_->syncDB();
    return true;
}

OptionalString KoraController::registerApplicationWithIdentifier(
    const OptionalString&, const OptionalString&, const OptionalString&, const OptionalString&,
    const OptionalString&, const OptionalString&, const OptionalString&, const OptionalString&,
    const OptionalString&) {
    // Accepted for older clients; nothing is stored and nothing is sent.
    return std::nullopt;
}

OptionalString KoraController::echo(const OptionalString& text) {
    openSystemLog();
    logInfo("Echoing: %s", text ? loggable(*text).c_str() : "(null)");
    closeSystemLog();
    return text;
}

void KoraController::beginShutdown() {
    shuttingDown_ = true;
    service_.cancelAll();
}

Date KoraController::dateSinceLastCheck() const {
    std::lock_guard lock(mainThreadLock_);
    return dateSinceLastCheck_;
}

Date KoraController::lastUpdate() const {
    std::lock_guard lock(mainThreadLock_);
    return lastUpdate_;
}

void KoraController::setLastUpdate(Date date) {
    std::lock_guard lock(mainThreadLock_);
    lastUpdate_ = date;
}

}  // namespace kora
