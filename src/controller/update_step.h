#pragma once

#include <functional>

#include "platform/date.h"
#include "update/kora_update.h"

namespace kora {

// What one tick does with one update in progress.
enum class UpdateStep {
    Nothing,
    // Roaming: stop the running download, hold the update back an hour, store it.
    StopForRoaming,
    // Downloaded and installed: store it again (it stays in memory only).
    StoreCompleted,
    StartDownload,
    StartInstallation,
};

// Decides the step from the update's flags, roaming first. `networkUp` is
// asked only for an update whose download may start, and before its
// wait-until date is looked at.
UpdateStep nextStep(const KoraUpdate& update, bool roaming, const std::function<bool()>& networkUp,
                    Date now);

}  // namespace kora
