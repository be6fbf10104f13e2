#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "platform/regular_file.h"

namespace kora {

// How long a download may stall or crawl before it ends as timed out.
struct FileDownloadLimits {
    // No byte for this long (connecting, waiting for the head, or in the body).
    std::chrono::seconds inactivityTimeout{60};
    // Fewer than minimumBytesPerWindow bytes of body in any window of this
    // length: a server that sends a byte now and then cannot hold a download
    // (and the daemon's /tmp) for ever. 1 KiB/s over 60 s.
    std::chrono::seconds slowWindow{60};
    std::size_t minimumBytesPerWindow = 60 * 1024;
};

// Why a download failed: a sentence for the log, and the URL it failed on.
struct FileDownloadError {
    std::string description;
    std::string url;
};

// What the destination callback answers: a file opened for writing (the
// download owns it from then on), or why there is none.
struct FileDownloadDestination {
    std::optional<FileDescriptor> file;
    std::string error;
};

// Told about one download, on the main context, until it ends or is cancelled.
class FileDownloadDelegate {
  public:
    virtual ~FileDownloadDelegate() = default;
    // Asked once, when a 2xx reply head is in, with the file name the reply
    // suggests (never "", "." or "..", never holding a '/').
    virtual FileDownloadDestination decideDestination(const std::string& suggestedName) = 0;
    virtual void didFailWithError(const FileDownloadError& error) = 0;
    // The whole body is in the file, and the file is closed.
    virtual void downloadDidFinish() = 0;
};

// One GET of a URL into a file over libsoup on the default main context. The
// body is streamed through one fixed buffer, so memory stays flat whatever the
// size. Exactly one of didFailWithError or downloadDidFinish follows, always
// from the main loop, unless the download is cancelled first. TLS
// certificates are checked against the system's store.
class FileDownload {
  public:
    // No download (and no callback ever) for a URL that is not HTTP(S).
    static std::unique_ptr<FileDownload> start(const std::string& url,
                                               const FileDownloadLimits& limits,
                                               FileDownloadDelegate& delegate);
    // Destroying the handle cancels the download.
    virtual ~FileDownload() = default;
    // Stops the download; the delegate hears nothing more. The file written
    // so far stays as it is.
    virtual void cancel() = 0;
};

// The file name a reply suggests: the Content-Disposition file name when it
// has one, else the last path component of the final URL, unescaped; either
// reduced to its base name. None when that leaves "", "." or "..".
std::optional<std::string> suggestedFileName(const std::optional<std::string>& dispositionName,
                                             const std::string& finalUrlPath);

}  // namespace kora
