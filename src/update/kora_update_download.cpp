#include <cerrno>
#include <cstring>
#include <system_error>

#include "platform/logging.h"
#include "update/kora_update.h"
#include "update/kora_update_delegate.h"

namespace kora {

namespace fs = std::filesystem;

bool KoraUpdate::startDownload() {
    if (!downloadLocation_) return hasStartedDownload_;
    // A new download replaces (and so cancels) the handle of an earlier one.
    try {
        connection_ = FileDownload::start(*downloadLocation_, downloadLimits_, *this);
        hasStartedDownload_ = connection_ != nullptr;
    } catch (...) {
        connection_.reset();
        hasStartedDownload_ = false;
    }
    return hasStartedDownload_;
}

void KoraUpdate::pauseDownload() {
    cancelDownload();
}

// The handle stays until the next startDownload replaces it; a cancelled
// download calls nothing back.
void KoraUpdate::cancelDownload() {
    if (!connection_) return;
    connection_->cancel();
    hasStartedDownload_ = false;
}

FileDownloadDestination KoraUpdate::decideDestination(const std::string& suggestedName) {
    // Whether the folder could be made is not asked: creating the file says.
    std::error_code ignored;
    if (!fs::is_directory(downloadFolder_, ignored) &&
        fs::create_directories(downloadFolder_, ignored)) {
        fs::permissions(downloadFolder_, fs::perms::all, ignored);
    }
    const fs::path destination = downloadFolder_ / suggestedName;
    localFilePath_ = destination.string();
    // Whatever is there goes (a symbolic link itself, not what it points at),
    // and the file is then created only if nothing came back in between: a
    // link planted at the name in /tmp is never followed by root.
    fs::remove(destination, ignored);
    std::optional<FileDescriptor> file = createNewFile(destination);
    if (!file) {
        const int reason = errno;
        return {std::nullopt,
                "Could not create " + destination.string() + ": " + std::strerror(reason)};
    }
    return {std::move(file), {}};
}

void KoraUpdate::didFailWithError(const FileDownloadError& error) {
    const std::shared_ptr<KoraUpdate> self = selfForDelegate();
    connection_.reset();
    hasStartedDownload_ = false;
    logInfo("Download failed! Error - %s %s\n", loggable(error.description).c_str(),
            loggable(error.url).c_str());
    if (delegate_ != nullptr) delegate_->downloadErrorOn(self);
}

// The delegate is told before the flag is set: a delegate that reads it sees
// it still false, unless it set it itself.
void KoraUpdate::downloadDidFinish() {
    const std::shared_ptr<KoraUpdate> self = selfForDelegate();
    connection_.reset();
    if (delegate_ != nullptr) delegate_->downloadDidFinishFor(self);
    downloadComplete_ = true;
}

}  // namespace kora
