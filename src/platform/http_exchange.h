#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/input_limits.h"
#include "platform/service_error.h"

namespace kora {

// The HTTP side of a service exchange, over libsoup 3 on the default GLib main
// context. Nothing outside this file and its .cpp sees libsoup.

using HttpHeaders = std::vector<std::pair<std::string, std::string>>;

// What travels back to the server in a Cookie header; the domain and path say
// where the server set it.
struct HttpCookie {
    std::string name;
    std::string value;
    std::string domain;
    std::string path;
    bool operator==(const HttpCookie&) const = default;
};

struct HttpRequest {
    std::string url;
    // Sent in this order as far as libsoup allows (it writes the header names
    // it knows before all others). A "Content-Length" entry marks where the
    // body is attached: libsoup writes that header itself, from the body.
    HttpHeaders headers;
    std::string body;
    unsigned timeoutSeconds = 0;  // inactivity time-out; 0: none
    // The whole exchange ends as timed out after this long, however steadily
    // the reply comes in; 0: no deadline.
    std::chrono::milliseconds deadline = kExchangeDeadline;
};

struct HttpReplyHead {
    unsigned status = 0;
    HttpHeaders headers;
    std::optional<std::string> contentType;
    std::optional<std::uint64_t> contentLength;  // absent for chunked replies
    std::vector<HttpCookie> cookies;             // those libsoup accepts for the URL
};

struct HttpCredential {
    std::optional<std::string> user;
    std::optional<std::string> password;
};

// Told about one exchange, on the main context. After didFailWithError or
// connectionDidFinishLoading, or after it stopped the exchange by answering
// false, it hears nothing more.
class HttpExchangeDelegate {
  public:
    virtual ~HttpExchangeDelegate() = default;
    // `retrying` from the second challenge on; no credential refuses it.
    virtual std::optional<HttpCredential> didReceiveAuthenticationChallenge(bool retrying) = 0;
    // Answer false to stop without reading the body.
    virtual bool didReceiveResponse(const HttpReplyHead& head) = 0;
    // Answer false to stop reading.
    virtual bool didReceiveData(std::string_view chunk) = 0;
    virtual void didFailWithError(const ServiceError& error) = 0;
    virtual void connectionDidFinishLoading() = 0;
};

// One POST. It starts at once and keeps itself and its delegate alive until
// the delegate has been told the end (or has been detached); every outcome,
// an unusable URL included, reaches the delegate from the main loop, never
// from inside start().
class HttpExchange {
  public:
    static std::shared_ptr<HttpExchange> start(const HttpRequest& request,
                                               std::shared_ptr<HttpExchangeDelegate> delegate);
    virtual ~HttpExchange() = default;

    // The delegate hears nothing more; network work still under way ends on
    // its own and is dropped.
    virtual void detach() = 0;

    // For the daemon's shutdown: every exchange in flight ends at once with
    // the cancelled error, and so does every one started afterwards (its
    // delegate hears so from the main loop), so nothing waiting on the
    // service can hold the process. There is no way back.
    static void cancelAll();
    static bool allCancelled();
};

// What an exchange ended by cancelAll reports.
ServiceError exchangeCancelledError();

// What an exchange that ran past its deadline reports: the very error that
// libsoup gives when the inactivity time-out ends it.
ServiceError exchangeTimedOutError();

// The host part of an HTTP or HTTPS URL, without port; none for anything else.
std::optional<std::string> hostOfUrl(const std::string& url);

// The standard phrase of an HTTP status code ("Not Found" for 404).
std::string standardReasonPhrase(unsigned status);

}  // namespace kora
