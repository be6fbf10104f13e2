#include "controller/update_step.h"

namespace kora {

UpdateStep nextStep(const KoraUpdate& update, bool roaming, const std::function<bool()>& networkUp,
                    Date now) {
    const bool downloading = update.hasStartedDownload();
    const bool downloaded = update.downloadComplete();
    const bool installing = update.hasStartedInstallation();
    const bool installed = update.installationComplete();
    if (roaming) {
        return downloading && !downloaded ? UpdateStep::StopForRoaming : UpdateStep::Nothing;
    }
    if (downloading && installing) {
        return downloaded && installed ? UpdateStep::StoreCompleted : UpdateStep::Nothing;
    }
    if (!downloaded) {
        if (downloading) return UpdateStep::Nothing;
        return networkUp() && !update.shouldPostpone(now) ? UpdateStep::StartDownload
                                                          : UpdateStep::Nothing;
    }
    if (!installing && !installed && !update.shouldPostpone(now)) {
        return UpdateStep::StartInstallation;
    }
    return UpdateStep::Nothing;
}

}  // namespace kora
