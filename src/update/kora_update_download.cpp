#include "update/kora_update.h"

// PLACEHOLDER until the downloader lands: starts nothing.
namespace kora {

bool KoraUpdate::startDownload() { return hasStartedDownload_; }
void KoraUpdate::pauseDownload() { cancelDownload(); }
void KoraUpdate::cancelDownload() {}

}  // namespace kora
