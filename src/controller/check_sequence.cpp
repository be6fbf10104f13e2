// One tick of the controller's timer: the hourly refresh, the daily check for
// updates, and one step on for every update in progress.

#include "controller/kora_controller.h"

#include <cerrno>
#include <cstring>
#include "controller/service_requests.h"
#include "controller/update_step.h"
#include "dates/stored_date.h"
#include "platform/logging.h"

namespace kora {

// A running download stopped for roaming waits this long before it may start again.
constexpr std::int32_t kRoamingPostponementHours = 1;

void KoraController::checkSequence() {
    if (shuttingDown_) return;
    if (clock_->now() - lastUpdate() > kHourlyThreshold) runHourlyStep();
    driveUpdatesInProgress();
}

void KoraController::runHourlyStep() {
    const auto sinceLastCheck = clock_->now() - dateSinceLastCheck();
    db_->updateInstalledApplications();
    db_->syncDB();
    // The network is asked last: the question may take a while to answer.
    if (sinceLastCheck > kDailyThreshold && !isModemRoaming_ && installer_.HasInternetConnection()) {
        checkForUpdates();
    }
    // Set whether or not the check ran, so a skipped check is tried again at
    // the next hourly step, not at every tick.
    setLastUpdate(clock_->now());
}

void KoraController::checkForUpdates() {
    // A copy: applications registered or removed while a request waits do
    // not disturb the walk.
    for (const auto& [identifier, application] : db_->registeredApplications()) {
        if (shuttingDown_) return;
        checkApplication(identifier, *application);
    }
    // A check cut short is not recorded, so the next start checks again.
    if (shuttingDown_) return;
    recordCompletedCheck();
}

void KoraController::checkApplication(const std::string& identifier,
                                      const KoraApplication& application) {
    logInfo("Checking for updates for: %s", loggable(identifier).c_str());
    const auto reply = service_.check(checkRequestFor(application, *machineFacts_));
    if (!reply.hasBodyParts) return;  // the exchange failed; its own trace says why
    if (!reply.response) {
        logInfo("Error checking for updates");
        return;
    }
    // The request goes out even then, but one update at a time per application.
    if (db_->getUpdateInfoForIdentifier(identifier)) return;
    takeOffer(identifier, *reply.response);
}

void KoraController::takeOffer(const std::string& identifier, const KORA_CheckResponse& response) {
    const Offer offer = updateFromOffer(identifier, response);
    if (!offer.update) {
        logInfo("%s", offer.refusal.c_str());
        return;
    }
    offer.update->setDownloadFolder(downloadFolder_);
    store(offer.update);
    offer.update->setDelegate(this);
    logInfo("Found a update, will start download");
    offer.update->startDownload();
}

void KoraController::recordCompletedCheck() {
    const Date finished = clock_->now();
    {
        std::lock_guard lock(mainThreadLock_);
        dateSinceLastCheck_ = finished;
    }
    // The registry's own keys stay as they are on disk; an unreadable file is
    // kept aside and gets this key alone.
    if (checkDateFile_.replaceRootKey("LastKoraCheckDate", storedDateText(finished)) ==
        RegistryWrite::Failed) {
        logInfo("Cannot record the check in %s: %s", configPath_.c_str(), std::strerror(errno));
    }
}

void KoraController::driveUpdatesInProgress() {
    for (const auto& [identifier, update] : db_->currentUpdates()) driveUpdate(update);
}

void KoraController::driveUpdate(const std::shared_ptr<KoraUpdate>& update) {
    // Roaming is read afresh for every update: a client may change it while an
    // installation or a notice keeps the loop turning.
    const auto networkUp = [this] { return installer_.HasInternetConnection(); };
    switch (nextStep(*update, isModemRoaming_, networkUp, clock_->now())) {
        case UpdateStep::Nothing:
            return;
        case UpdateStep::StopForRoaming:
            update->cancelDownload();
            update->postponeHours(kRoamingPostponementHours, clock_->now());
            store(update);
            return;
        case UpdateStep::StoreCompleted:
            store(update);
            return;
        case UpdateStep::StartDownload:
            update->startDownload();
            return;
        case UpdateStep::StartInstallation:
            update->startInstallation(installer_, selfUpdateHelper_);
            return;
    }
}

}  // namespace kora
