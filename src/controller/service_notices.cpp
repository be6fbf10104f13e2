// The outcomes that updates report, and the notices they send to the service.

#include "controller/kora_controller.h"
#include "controller/service_requests.h"
#include "platform/logging.h"

namespace kora {

// Each outcome changes the update and stores it before the service is told,
// so the new state stands whatever the service answers, and a tick that runs
// while the notice waits already sees it. The notice goes out once: no retry.

void KoraController::downloadErrorOn(const std::shared_ptr<KoraUpdate>& update) {
    update->postponeHours(24, clock_->now());
    store(update);
    notify(*update, &UpdateService::downloadError);
}

void KoraController::downloadDidFinishFor(const std::shared_ptr<KoraUpdate>& update) {
    update->setDownloadComplete(true);
    store(update);
    notify(*update, &UpdateService::downloadComplete);
}

void KoraController::installationErrorOn(const std::shared_ptr<KoraUpdate>& update) {
    update->setInstallationComplete(true);
    store(update);
    notify(*update, &UpdateService::installError);
}

void KoraController::installationDidFinishFor(const std::shared_ptr<KoraUpdate>& update) {
    update->setInstallationComplete(true);
    store(update);
    // An application uninstalled while its update ran has no record left:
    // nothing takes the new version (recording it would register the
    // application again), and the notice goes out with the update's own
    // identifier only, the application's fields absent.
    if (const auto application = db_->registeredApplicationForIdentifier(update->identifier())) {
        db_->updateApplication(application->identifier(), application->bundlePath(),
                               update->versionTo());
        db_->syncDB();
    }
    notify(*update, &UpdateService::installComplete);
}

void KoraController::store(const std::shared_ptr<KoraUpdate>& update) {
    db_->updateInfoForUpdateWithIdentifier(update->identifier(), update);
}

template <typename Notice, typename Response>
void KoraController::notify(const KoraUpdate& update,
                            ServiceReply<Response> (UpdateService::*send)(const Notice&)) {
    // Looked up after the store: the record shows the version just recorded.
    const auto application = db_->registeredApplicationForIdentifier(update.identifier());
    const Notice notice = noticeFor<Notice>(update, application.get(), *machineFacts_, *clock_);
    if ((service_.*send)(notice).response) logInfo("Successfully notified KORA Server");
}

}  // namespace kora
