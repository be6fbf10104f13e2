#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "platform/http_exchange.h"
#include "platform/service_error.h"
#include "soap/soap_reply.h"

namespace kora {

class KORASoapBindingOperation;

// What a call hands back: the recognised parts of the reply body, or the
// error that ended the exchange. bodyParts stays absent until a reply body
// has been read; headers are never filled. cookies are those of the reply
// head, absent when no head arrived; the binding keeps them for its next call.
class KORASoapBindingResponse {
  public:
    const std::optional<std::vector<BodyPart>>& headers() const { return headers_; }
    const std::optional<std::vector<BodyPart>>& bodyParts() const { return bodyParts_; }
    void setBodyParts(std::optional<std::vector<BodyPart>> parts) { bodyParts_ = std::move(parts); }
    const std::optional<std::vector<HttpCookie>>& cookies() const { return cookies_; }
    void setCookies(std::optional<std::vector<HttpCookie>> cookies) {
        cookies_ = std::move(cookies);
    }
    const std::optional<ServiceError>& error() const { return error_; }
    void setError(std::optional<ServiceError> error) { error_ = std::move(error); }

    // The first body part as a `T` (a record type or SOAPFault), or null.
    template <typename T>
    const T* firstBodyPartAs() const {
        if (!bodyParts_ || bodyParts_->empty()) return nullptr;
        return bodyPartAs<T>(bodyParts_->front());
    }

  private:
    std::optional<std::vector<BodyPart>> headers_;
    std::optional<std::vector<BodyPart>> bodyParts_;
    std::optional<std::vector<HttpCookie>> cookies_;
    std::optional<ServiceError> error_;
};

// Told once a call has finished, on the main loop's thread.
class KORASoapBindingResponseDelegate {
  public:
    virtual ~KORASoapBindingResponseDelegate() = default;
    virtual void operation(KORASoapBindingOperation& operation,
                           const std::shared_ptr<KORASoapBindingResponse>& response) = 0;
};

// Both binding kinds answer with the same response shape.
using KORASoap12BindingResponse = KORASoapBindingResponse;
using KORASoap12BindingResponseDelegate = KORASoapBindingResponseDelegate;

}  // namespace kora
