#include "platform/file_download.h"

#include <glib.h>
#include <libsoup/soup.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/gobject_ptr.h"
#include "platform/http_exchange.h"
#include "platform/logging.h"

namespace kora {
namespace {

// One buffer for the whole body, read into and written out in a loop:
// splicing the stream into the file reached only a fraction of `curl -o` on
// loopback, while reads of this size keep up with it and memory stays flat.
constexpr gsize kBufferBytes = 256 * 1024;

std::string uriText(GUri* uri) {
    g_autofree char* text = g_uri_to_string(uri);
    return text ? text : "";
}

std::optional<std::string> dispositionFileName(SoupMessage* message) {
    SoupMessageHeaders* headers = soup_message_get_response_headers(message);
    char* disposition = nullptr;
    GHashTable* parameters = nullptr;
    if (!soup_message_headers_get_content_disposition(headers, &disposition, &parameters)) {
        return std::nullopt;
    }
    g_free(disposition);
    const auto* name = static_cast<const char*>(g_hash_table_lookup(parameters, "filename"));
    std::optional<std::string> result;
    if (name != nullptr) result = name;
    g_hash_table_destroy(parameters);
    return result;
}

// The running transfer. Each pending libsoup call and the handle hold it, so
// no callback finds it gone; the handle's cancel detaches the delegate, after
// which callbacks that still arrive are dropped.
class Transfer : public std::enable_shared_from_this<Transfer> {
  public:
    Transfer(FileDownloadDelegate& delegate, const FileDownloadLimits& limits)
        : delegate_(&delegate), limits_(limits), cancellable_(g_cancellable_new()) {}
    ~Transfer() { stopSlowWatch(); }

    bool begin(const std::string& url);
    void cancel() {
        if (delegate_ == nullptr) return;
        delegate_ = nullptr;
        tearDown();
    }

  private:
    using Holder = std::shared_ptr<Transfer>;
    gpointer hold() { return new Holder(shared_from_this()); }

    static void onSent(GObject*, GAsyncResult* result, gpointer data);
    static void onRead(GObject* source, GAsyncResult* result, gpointer data);
    static gboolean onSlowWatch(gpointer data);
    void sent(GAsyncResult* result);
    void chunkRead(GInputStream* stream, GAsyncResult* result);
    void openDestination();
    FileDownloadDestination askForDestination(const std::string& name);
    void readNext();
    void stopSlowWatch();
    void tearDown();
    void fail(const std::string& description);
    void finish();

    FileDownloadDelegate* delegate_;
    FileDownloadLimits limits_;
    ObjectPtr<GCancellable> cancellable_;
    ObjectPtr<SoupSession> session_;
    ObjectPtr<SoupMessage> message_;
    ObjectPtr<GInputStream> body_;
    std::optional<FileDescriptor> file_;
    std::unique_ptr<char[]> buffer_;
    std::size_t windowBytes_ = 0;
    guint slowWatch_ = 0;
};

bool Transfer::begin(const std::string& url) {
    if (!hostOfUrl(url)) return false;
    message_.reset(soup_message_new("GET", url.c_str()));
    if (!message_) return false;
    // A session per download: its inactivity time-out is fixed when it is
    // built. The default TLS database is the system's, and no
    // "accept-certificate" handler is connected, so a bad certificate fails.
    const auto timeout = static_cast<guint>(limits_.inactivityTimeout.count());
    session_.reset(soup_session_new_with_options("timeout", timeout, nullptr));
    soup_session_send_async(session_.get(), message_.get(), G_PRIORITY_DEFAULT, cancellable_.get(),
                            onSent, hold());
    const auto window = std::chrono::duration_cast<std::chrono::milliseconds>(limits_.slowWindow);
    if (window.count() > 0) {
        slowWatch_ = g_timeout_add_full(
            G_PRIORITY_DEFAULT, static_cast<guint>(std::min<long long>(window.count(), G_MAXUINT)),
            onSlowWatch, this, nullptr);
    }
    return true;
}

void Transfer::onSent(GObject*, GAsyncResult* result, gpointer data) {
    const std::unique_ptr<Holder> self(static_cast<Holder*>(data));
    (*self)->sent(result);
}

void Transfer::sent(GAsyncResult* result) {
    g_autoptr(GError) error = nullptr;
    body_.reset(soup_session_send_finish(session_.get(), result, &error));
    if (delegate_ == nullptr) return;
    if (error) return fail(error->message);
    const unsigned status = soup_message_get_status(message_.get());
    if (!SOUP_STATUS_IS_SUCCESSFUL(status)) {
        return fail("The server answered " + std::to_string(status) + " " +
                    standardReasonPhrase(status));
    }
    openDestination();
}

void Transfer::openDestination() {
    const std::optional<std::string> name = suggestedFileName(
        dispositionFileName(message_.get()), g_uri_get_path(soup_message_get_uri(message_.get())));
    if (!name) return fail("The reply names no usable file");
    FileDownloadDestination destination = askForDestination(*name);
    if (delegate_ == nullptr) return;  // cancelled while choosing
    if (!destination.file) return fail(destination.error);
    file_.emplace(std::move(*destination.file));
    buffer_ = std::make_unique<char[]>(kBufferBytes);
    readNext();
}

FileDownloadDestination Transfer::askForDestination(const std::string& name) {
    try {
        return delegate_->decideDestination(name);
    } catch (...) {
        return {std::nullopt, "Exception while choosing the download's destination"};
    }
}

void Transfer::readNext() {
    g_input_stream_read_async(body_.get(), buffer_.get(), kBufferBytes, G_PRIORITY_DEFAULT,
                              cancellable_.get(), onRead, hold());
}

void Transfer::onRead(GObject* source, GAsyncResult* result, gpointer data) {
    const std::unique_ptr<Holder> self(static_cast<Holder*>(data));
    (*self)->chunkRead(G_INPUT_STREAM(source), result);
}

void Transfer::chunkRead(GInputStream* stream, GAsyncResult* result) {
    g_autoptr(GError) error = nullptr;
    const gssize size = g_input_stream_read_finish(stream, result, &error);
    if (delegate_ == nullptr) return;
    if (error) return fail(error->message);
    if (size == 0) return finish();
    if (!writeAll(file_->get(), buffer_.get(), static_cast<std::size_t>(size))) {
        return fail(std::string("Could not write the downloaded file: ") + std::strerror(errno));
    }
    windowBytes_ += static_cast<std::size_t>(size);
    readNext();
}

gboolean Transfer::onSlowWatch(gpointer data) {
    auto* self = static_cast<Transfer*>(data);
    if (self->windowBytes_ >= self->limits_.minimumBytesPerWindow) {
        self->windowBytes_ = 0;
        return G_SOURCE_CONTINUE;
    }
    self->slowWatch_ = 0;
    const Holder keep = self->shared_from_this();
    self->fail(exchangeTimedOutError().description);
    return G_SOURCE_REMOVE;
}

void Transfer::stopSlowWatch() {
    if (slowWatch_ != 0) g_source_remove(slowWatch_);
    slowWatch_ = 0;
}

// A queued request does not end when its cancellable is cancelled; aborting
// the session ends it, and drops a body nobody will read.
void Transfer::tearDown() {
    stopSlowWatch();
    g_cancellable_cancel(cancellable_.get());
    if (session_) soup_session_abort(session_.get());
    body_.reset();
    file_.reset();
}

void Transfer::fail(const std::string& description) {
    FileDownloadDelegate* delegate = std::exchange(delegate_, nullptr);
    const std::string url = uriText(soup_message_get_uri(message_.get()));
    tearDown();
    try {
        delegate->didFailWithError(FileDownloadError{description, url});
    } catch (...) {
        logError("Exception while reporting a failed download");
    }
}

void Transfer::finish() {
    stopSlowWatch();
    body_.reset();
    const bool closed = file_->close();
    file_.reset();
    if (!closed) {
        return fail(std::string("Could not write the downloaded file: ") + std::strerror(errno));
    }
    FileDownloadDelegate* delegate = std::exchange(delegate_, nullptr);
    try {
        delegate->downloadDidFinish();
    } catch (...) {
        logError("Exception while reporting a finished download");
    }
}

class SoupFileDownload final : public FileDownload {
  public:
    explicit SoupFileDownload(std::shared_ptr<Transfer> transfer)
        : transfer_(std::move(transfer)) {}
    ~SoupFileDownload() override { transfer_->cancel(); }
    void cancel() override { transfer_->cancel(); }

  private:
    std::shared_ptr<Transfer> transfer_;
};

std::string lastComponent(const std::string& path) {
    const auto slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace

std::unique_ptr<FileDownload> FileDownload::start(const std::string& url,
                                                  const FileDownloadLimits& limits,
                                                  FileDownloadDelegate& delegate) {
    auto transfer = std::make_shared<Transfer>(delegate, limits);
    if (!transfer->begin(url)) return nullptr;
    return std::make_unique<SoupFileDownload>(std::move(transfer));
}

std::optional<std::string> suggestedFileName(const std::optional<std::string>& dispositionName,
                                             const std::string& finalUrlPath) {
    std::string name;
    if (dispositionName) {
        name = lastComponent(*dispositionName);
    } else {
        // An escaped NUL leaves no name at all.
        g_autofree char* unescaped =
            g_uri_unescape_string(lastComponent(finalUrlPath).c_str(), nullptr);
        if (unescaped == nullptr) return std::nullopt;
        name = lastComponent(unescaped);
    }
    if (name.empty() || name == "." || name == "..") return std::nullopt;
    return name;
}

}  // namespace kora
