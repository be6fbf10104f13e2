#include "platform/http_exchange.h"

#include <glib.h>
#include <libsoup/soup.h>
#include <strings.h>

#include <algorithm>
#include <cstring>
#include <unordered_set>

#include "platform/gobject_ptr.h"
#include "platform/logging.h"

namespace kora {
namespace {

// Bodies are read in pieces this large, so a reply is refused as soon as it
// has grown past what the delegate accepts.
constexpr gsize kReadChunkBytes = 64 * 1024;

// Set by cancelAll, never cleared: the process is shutting down.
bool allExchangesCancelled = false;

ServiceError errorFrom(const GError* error) {
    return ServiceError{g_quark_to_string(error->domain), error->code, error->message};
}

// libsoup treats a header it cannot send as a programming error; such a
// header (a line break in a value, say) is left out instead.
bool sendableHeader(const std::string& name, const std::string& value) {
    return !name.empty() && name.find_first_of(" \t\r\n:") == std::string::npos &&
           value.find_first_of("\r\n") == std::string::npos;
}

// `uri` receives the parsed URL (null when it does not parse); the caller
// owns it.
std::optional<std::string> checkedHttpUri(const std::string& url, GUri** uri) {
    g_autoptr(GError) error = nullptr;
    *uri = g_uri_parse(url.c_str(), static_cast<GUriFlags>(SOUP_HTTP_URI_FLAGS), &error);
    if (*uri == nullptr) return error ? error->message : "Invalid URL";
    const char* scheme = g_uri_get_scheme(*uri);
    const char* host = g_uri_get_host(*uri);
    const bool http = scheme && (g_ascii_strcasecmp(scheme, "http") == 0 ||
                                 g_ascii_strcasecmp(scheme, "https") == 0);
    if (!http || host == nullptr || *host == '\0') return "Not an HTTP or HTTPS URL: " + url;
    return std::nullopt;
}

HttpHeaders headerList(SoupMessageHeaders* headers) {
    HttpHeaders list;
    SoupMessageHeadersIter iter;
    soup_message_headers_iter_init(&iter, headers);
    const char* name = nullptr;
    const char* value = nullptr;
    while (soup_message_headers_iter_next(&iter, &name, &value)) list.emplace_back(name, value);
    return list;
}

std::vector<HttpCookie> cookiesOf(SoupMessage* message) {
    std::vector<HttpCookie> cookies;
    GSList* list = soup_cookies_from_response(message);
    for (GSList* item = list; item != nullptr; item = item->next) {
        auto* cookie = static_cast<SoupCookie*>(item->data);
        const char* domain = soup_cookie_get_domain(cookie);
        const char* path = soup_cookie_get_path(cookie);
        cookies.push_back({soup_cookie_get_name(cookie), soup_cookie_get_value(cookie),
                           domain ? domain : "", path ? path : ""});
    }
    soup_cookies_free(list);
    return cookies;
}

HttpReplyHead replyHead(SoupMessage* message) {
    SoupMessageHeaders* headers = soup_message_get_response_headers(message);
    HttpReplyHead head;
    head.status = soup_message_get_status(message);
    head.headers = headerList(headers);
    if (const char* type = soup_message_headers_get_one(headers, "Content-Type")) {
        head.contentType = type;
    }
    if (soup_message_headers_get_encoding(headers) == SOUP_ENCODING_CONTENT_LENGTH) {
        head.contentLength = soup_message_headers_get_content_length(headers);
    }
    head.cookies = cookiesOf(message);
    return head;
}

// The body is read as soon as the head is in, chunk by chunk, in the same
// loop iterations that deliver it: like soup_session_send_and_read_async, no
// connection is ever held by a body nobody reads (which deadlocked nested
// exchanges), and unlike it, reading stops at the delegate's size cap instead
// of growing a buffer for as long as the server keeps sending.
class SoupExchange;

// Every exchange that exists, so that cancelAll can reach those in flight.
std::unordered_set<SoupExchange*>& allExchanges() {
    static auto* const exchanges = new std::unordered_set<SoupExchange*>;
    return *exchanges;
}

class SoupExchange final : public HttpExchange, public std::enable_shared_from_this<SoupExchange> {
  public:
    explicit SoupExchange(std::shared_ptr<HttpExchangeDelegate> delegate)
        : delegate_(std::move(delegate)) {
        allExchanges().insert(this);
    }

    ~SoupExchange() override {
        allExchanges().erase(this);
        cancelDeadline();
        if (message_) g_signal_handlers_disconnect_by_data(message_.get(), this);
    }

    void begin(const HttpRequest& request);
    void detach() override { delegate_.reset(); }
    // Ends the exchange now, telling the delegate (if still attached) `error`.
    void end(const ServiceError& error) { fail(error); }

  private:
    // Each pending libsoup call holds the exchange, so a callback never finds
    // it gone.
    using Holder = std::shared_ptr<SoupExchange>;
    gpointer hold() { return new Holder(shared_from_this()); }

    bool buildMessage(const HttpRequest& request, GUri* uri);
    void attachBody(const std::string& body);
    void failLater(ServiceError error);
    // Tells the delegate one piece of the reply (`tell` answers whether it
    // wants more), then reads the next chunk, or stops.
    template <typename Tell>
    void tellThenReadOn(const char* exceptionText, Tell tell);
    void readNextChunk();
    void startDeadline(std::chrono::milliseconds deadline);
    void cancelDeadline();
    void stopReading();
    void fail(const ServiceError& error);
    void finish();

    static gboolean onAuthenticate(SoupMessage*, SoupAuth* auth, gboolean retrying, gpointer data);
    static void onSent(GObject* source, GAsyncResult* result, gpointer data);
    static void onChunk(GObject* source, GAsyncResult* result, gpointer data);
    static gboolean onDeadline(gpointer data);
    void sent(GAsyncResult* result);
    void chunkRead(GInputStream* stream, GAsyncResult* result);

    std::shared_ptr<HttpExchangeDelegate> delegate_;
    ObjectPtr<SoupSession> session_;
    ObjectPtr<SoupMessage> message_;
    ObjectPtr<GInputStream> body_;
    std::optional<ServiceError> pendingError_;
    guint deadlineSource_ = 0;
    bool aborted_ = false;
};

void SoupExchange::begin(const HttpRequest& request) {
    if (allExchangesCancelled) return failLater(exchangeCancelledError());
    g_autoptr(GUri) uri = nullptr;
    if (const auto problem = checkedHttpUri(request.url, &uri)) {
        failLater(
            ServiceError{g_quark_to_string(G_IO_ERROR), G_IO_ERROR_INVALID_ARGUMENT, *problem});
        return;
    }
    // A session per exchange: its time-out is fixed when it is built, and no
    // connection is shared with (or held by) another exchange. Without a
    // cookie jar or cache feature, cookies are only what the caller sends.
    session_.reset(soup_session_new_with_options("timeout", request.timeoutSeconds, nullptr));
    if (!buildMessage(request, uri)) return;
    g_signal_connect(message_.get(), "authenticate", G_CALLBACK(onAuthenticate), this);
    soup_session_send_async(session_.get(), message_.get(), G_PRIORITY_DEFAULT, nullptr, onSent,
                            hold());
    startDeadline(request.deadline);
}

// libsoup's time-out measures only inactivity: a reply that trickles in
// would hold the exchange for ever without this timer.
void SoupExchange::startDeadline(std::chrono::milliseconds deadline) {
    if (deadline.count() <= 0) return;
    const auto milliseconds = std::min<std::chrono::milliseconds::rep>(deadline.count(), G_MAXUINT);
    deadlineSource_ =
        g_timeout_add_full(G_PRIORITY_DEFAULT, static_cast<guint>(milliseconds), onDeadline, this,
                           nullptr);
}

gboolean SoupExchange::onDeadline(gpointer data) {
    auto* self = static_cast<SoupExchange*>(data);
    self->deadlineSource_ = 0;
    const Holder keep = self->shared_from_this();
    self->fail(exchangeTimedOutError());
    return G_SOURCE_REMOVE;
}

void SoupExchange::cancelDeadline() {
    if (deadlineSource_ != 0) g_source_remove(deadlineSource_);
    deadlineSource_ = 0;
}

bool SoupExchange::buildMessage(const HttpRequest& request, GUri* uri) {
    message_.reset(soup_message_new_from_uri("POST", uri));
    if (!message_) {
        failLater(ServiceError{g_quark_to_string(G_IO_ERROR), G_IO_ERROR_INVALID_ARGUMENT,
                               "Invalid URL: " + request.url});
        return false;
    }
    SoupMessageHeaders* headers = soup_message_get_request_headers(message_.get());
    bool bodyAttached = false;
    for (const auto& [name, value] : request.headers) {
        if (g_ascii_strcasecmp(name.c_str(), "Content-Length") == 0) {
            attachBody(request.body);
            bodyAttached = true;
        } else if (sendableHeader(name, value)) {
            soup_message_headers_append(headers, name.c_str(), value.c_str());
        }
    }
    if (!bodyAttached) attachBody(request.body);
    return true;
}

// Never a Content-Length of our own (a wrong one silently cuts the body), and
// no content type here so that the caller's Content-Type stays.
void SoupExchange::attachBody(const std::string& body) {
    g_autoptr(GBytes) bytes = g_bytes_new(body.data(), body.size());
    soup_message_set_request_body_from_bytes(message_.get(), nullptr, bytes);
}

void SoupExchange::failLater(ServiceError error) {
    pendingError_ = std::move(error);
    g_idle_add_full(
        G_PRIORITY_DEFAULT,
        [](gpointer data) -> gboolean {
            const Holder& self = *static_cast<Holder*>(data);
            self->fail(*self->pendingError_);
            return G_SOURCE_REMOVE;
        },
        hold(), [](gpointer data) { delete static_cast<Holder*>(data); });
}

gboolean SoupExchange::onAuthenticate(SoupMessage*, SoupAuth* auth, gboolean retrying,
                                      gpointer data) {
    auto* self = static_cast<SoupExchange*>(data);
    const std::shared_ptr<HttpExchangeDelegate> delegate = self->delegate_;
    if (!delegate) return FALSE;
    try {
        const std::optional<HttpCredential> credential =
            delegate->didReceiveAuthenticationChallenge(retrying);
        // Left unanswered, libsoup ends the exchange with the server's 401.
        if (!credential) return FALSE;
        soup_auth_authenticate(auth, credential->user.value_or("").c_str(),
                               credential->password.value_or("").c_str());
        return TRUE;
    } catch (...) {
        logError("Exception while answering an authentication challenge");
        return FALSE;
    }
}

void SoupExchange::onSent(GObject*, GAsyncResult* result, gpointer data) {
    const std::unique_ptr<Holder> self(static_cast<Holder*>(data));
    (*self)->sent(result);
}

void SoupExchange::sent(GAsyncResult* result) {
    g_autoptr(GError) error = nullptr;
    body_.reset(soup_session_send_finish(session_.get(), result, &error));
    if (!delegate_) return stopReading();
    if (error) return fail(errorFrom(error));
    tellThenReadOn("Exception while reading the reply head", [this](HttpExchangeDelegate& d) {
        return d.didReceiveResponse(replyHead(message_.get()));
    });
}

template <typename Tell>
void SoupExchange::tellThenReadOn(const char* exceptionText, Tell tell) {
    // The delegate may detach itself while it is being told; the copy keeps
    // it alive until it returns.
    const std::shared_ptr<HttpExchangeDelegate> delegate = delegate_;
    bool goOn = false;
    try {
        goOn = tell(*delegate);
    } catch (...) {
        return fail(ServiceError{g_quark_to_string(G_IO_ERROR), G_IO_ERROR_FAILED, exceptionText});
    }
    if (!goOn) {
        delegate_.reset();
        return stopReading();
    }
    readNextChunk();
}

void SoupExchange::readNextChunk() {
    g_input_stream_read_bytes_async(body_.get(), kReadChunkBytes, G_PRIORITY_DEFAULT, nullptr,
                                    onChunk, hold());
}

// The stream comes from the read itself: an exchange ended meanwhile (its
// deadline, cancelAll) has already let go of body_.
void SoupExchange::onChunk(GObject* source, GAsyncResult* result, gpointer data) {
    const std::unique_ptr<Holder> self(static_cast<Holder*>(data));
    (*self)->chunkRead(G_INPUT_STREAM(source), result);
}

void SoupExchange::chunkRead(GInputStream* stream, GAsyncResult* result) {
    g_autoptr(GError) error = nullptr;
    g_autoptr(GBytes) bytes = g_input_stream_read_bytes_finish(stream, result, &error);
    if (!delegate_) return stopReading();
    if (error) return fail(errorFrom(error));
    gsize size = 0;
    const auto* data = static_cast<const char*>(g_bytes_get_data(bytes, &size));
    if (size == 0) return finish();
    tellThenReadOn("Exception while reading the reply body", [data, size](HttpExchangeDelegate& d) {
        return d.didReceiveData(std::string_view(data, size));
    });
}

// Closing a body stream that was not read to its end would read the rest
// first (blocking); aborting the session drops the connection instead, and
// also ends a request still waiting for its reply head. Aborting may report
// the pending reads at once, which land here again: once is enough.
void SoupExchange::stopReading() {
    cancelDeadline();
    if (session_ && !aborted_) {
        aborted_ = true;
        soup_session_abort(session_.get());
    }
    body_.reset();
}

void SoupExchange::fail(const ServiceError& error) {
    const std::shared_ptr<HttpExchangeDelegate> delegate = std::move(delegate_);
    stopReading();
    if (!delegate) return;
    try {
        delegate->didFailWithError(error);
    } catch (...) {
        logError("Exception while reporting a failed exchange");
    }
}

void SoupExchange::finish() {
    const std::shared_ptr<HttpExchangeDelegate> delegate = std::move(delegate_);
    cancelDeadline();
    body_.reset();
    try {
        delegate->connectionDidFinishLoading();
    } catch (...) {
        logError("Exception while reading a finished exchange");
    }
}

}  // namespace

std::shared_ptr<HttpExchange> HttpExchange::start(const HttpRequest& request,
                                                  std::shared_ptr<HttpExchangeDelegate> delegate) {
    auto exchange = std::make_shared<SoupExchange>(std::move(delegate));
    exchange->begin(request);
    return exchange;
}

void HttpExchange::cancelAll() {
    allExchangesCancelled = true;
    // Ending one exchange can start or free others: work on a held copy.
    std::vector<std::shared_ptr<SoupExchange>> live;
    for (SoupExchange* exchange : allExchanges()) {
        if (auto held = exchange->weak_from_this().lock()) live.push_back(std::move(held));
    }
    for (const auto& exchange : live) exchange->end(exchangeCancelledError());
}

bool HttpExchange::allCancelled() {
    return allExchangesCancelled;
}

// GLib's own texts, translated as GLib translates them.
ServiceError exchangeCancelledError() {
    return ServiceError{g_quark_to_string(G_IO_ERROR), G_IO_ERROR_CANCELLED,
                        g_dgettext("glib20", "Operation was cancelled")};
}

ServiceError exchangeTimedOutError() {
    return ServiceError{g_quark_to_string(G_IO_ERROR), G_IO_ERROR_TIMED_OUT,
                        g_dgettext("glib20", "Socket I/O timed out")};
}

std::optional<std::string> hostOfUrl(const std::string& url) {
    g_autoptr(GUri) uri = nullptr;
    if (checkedHttpUri(url, &uri)) return std::nullopt;
    return std::string(g_uri_get_host(uri));
}

std::string standardReasonPhrase(unsigned status) {
    const char* phrase = soup_status_get_phrase(status);
    return phrase ? phrase : "";
}

}  // namespace kora
