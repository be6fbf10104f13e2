#include "soap/soap_binding.h"

#include <glib.h>

#include <cmath>

#include "platform/logging.h"
#include "soap/header_description.h"
#include "soap/kora.h"
#include "soap/service_settings.h"
#include "soap/soap_binding_operation.h"

namespace kora {
namespace {

const SoapEnvelopeWriter& soapEnvelope() {
    return KORASoapBinding_envelope::sharedInstance();
}
const SoapEnvelopeWriter& soap12Envelope() {
    return KORASoap12Binding_envelope::sharedInstance();
}

const BindingKind& soapKind() {
    static const auto* const kind =
        new BindingKind{"KORASoapBinding", "KORASoapBindingResponseHTTP",
                        "KORASoapBindingResponseXML", &soapEnvelope};
    return *kind;
}

const BindingKind& soap12Kind() {
    static const auto* const kind =
        new BindingKind{"KORASoap12Binding", "KORASoap12BindingResponseHTTP",
                        "KORASoap12BindingResponseXML", &soap12Envelope};
    return *kind;
}

// libsoup counts its time-out in whole seconds; a fraction rounds up so that
// a short time-out never becomes none.
unsigned timeoutSeconds(double seconds) {
    constexpr double kLongest = 24 * 3600;
    if (!(seconds > 0)) return 0;
    return static_cast<unsigned>(std::ceil(std::min(seconds, kLongest)));
}

std::string cookieHeader(const std::vector<HttpCookie>& cookies) {
    std::string header;
    for (const HttpCookie& cookie : cookies) {
        if (!header.empty()) header += "; ";
        header += cookie.name + "=" + cookie.value;
    }
    return header;
}

}  // namespace

SoapBinding::SoapBinding(const BindingKind& kind, std::optional<std::string> address)
    : kind_(kind), address_(std::move(address)), defaultTimeout_(kKoraDefaultTimeoutSeconds) {
    KORA::initialize();
}

void SoapBinding::addCookie(const std::optional<HttpCookie>& cookie) {
    if (!cookie) return;
    if (!cookies_) cookies_.emplace();
    cookies_->push_back(*cookie);
}

// A binding the caller does not share still works for synchronous calls: the
// operation then refers to it without owning it.
std::shared_ptr<SoapBinding> SoapBinding::self() {
    if (std::shared_ptr<SoapBinding> owned = weak_from_this().lock()) return owned;
    return std::shared_ptr<SoapBinding>(std::shared_ptr<SoapBinding>(), this);
}

template <typename Operation>
SoapBinding::ResponsePtr SoapBinding::callSynchronously(
    const std::optional<typename Operation::Request>& parameters) {
    return performSynchronousOperation(
        std::make_shared<KoraBindingOperation<Operation>>(self(), this, parameters));
}

template <typename Operation>
void SoapBinding::callAsynchronously(const std::optional<typename Operation::Request>& parameters,
                                     Delegate* delegate) {
    performAsynchronousOperation(
        std::make_shared<KoraBindingOperation<Operation>>(self(), delegate, parameters));
}

// The wait is on the operation's own completion, not only on the binding's
// flag: a call nested inside this one through the same binding sets that
// flag when it ends, and must not end this wait early.
SoapBinding::ResponsePtr SoapBinding::performSynchronousOperation(
    const std::shared_ptr<KORASoapBindingOperation>& operation) {
    synchronousOperationComplete_ = false;
    operation->main();
    while (!operation->isFinished()) g_main_context_iteration(nullptr, TRUE);
    return operation->response();
}

void SoapBinding::performAsynchronousOperation(
    const std::shared_ptr<KORASoapBindingOperation>& operation) {
    operation->main();
}

void SoapBinding::operation(KORASoapBindingOperation&, const ResponsePtr&) {
    synchronousOperationComplete_ = true;
}

HttpHeaders SoapBinding::requestHeaders(std::size_t bodyLength, std::string_view soapAction) const {
    HttpHeaders headers;
    if (cookies_ && !cookies_->empty()) headers.emplace_back("Cookie", cookieHeader(*cookies_));
    headers.emplace_back("User-Agent", kKoraUserAgent);
    headers.emplace_back("SOAPAction", std::string(soapAction));
    headers.emplace_back("Content-Type", "text/xml; charset=utf-8");
    headers.emplace_back("Content-Length", std::to_string(bodyLength));
    if (auto host = hostOfUrl(address_.value_or(""))) headers.emplace_back("Host", *host);
    return headers;
}

void SoapBinding::sendHTTPCallUsingBody(const std::string& body, std::string_view soapAction,
                                        KORASoapBindingOperation& operation) {
    HttpRequest request;
    request.url = address_.value_or("");
    request.headers = requestHeaders(body.size(), soapAction);
    request.body = body;
    request.timeoutSeconds = timeoutSeconds(defaultTimeout_);
    request.deadline = exchangeDeadline_;
    if (logXMLInOut_) {
        logDiagnostic("OutputHeaders:\n%s",
                      loggableTrace(headerDescription(request.headers)).c_str());
        logDiagnostic("OutputBody:\n%s", loggableTrace(body).c_str());
    }
    operation.setUrlConnection(HttpExchange::start(request, operation.shared_from_this()));
}

#define KORA_BINDING_CALLS(Name)                                                               \
    SoapBinding::ResponsePtr SoapBinding::Name##UsingParameters(                               \
        const std::optional<KORA_##Name>& parameters) {                                        \
        return callSynchronously<Name##Operation>(parameters);                                 \
    }                                                                                          \
    void SoapBinding::Name##AsyncUsingParameters(const std::optional<KORA_##Name>& parameters, \
                                                 Delegate* delegate) {                         \
        callAsynchronously<Name##Operation>(parameters, delegate);                             \
    }

KORA_BINDING_CALLS(Check)
KORA_BINDING_CALLS(DownloadError)
KORA_BINDING_CALLS(InstallError)
KORA_BINDING_CALLS(DownloadComplete)
KORA_BINDING_CALLS(InstallComplete)
KORA_BINDING_CALLS(DownloadCancel)
KORA_BINDING_CALLS(InstallCancel)
KORA_BINDING_CALLS(Uninstall)

#undef KORA_BINDING_CALLS

KORASoapBinding::KORASoapBinding() : SoapBinding(soapKind(), std::nullopt) {}
KORASoapBinding::KORASoapBinding(const std::string& address) : SoapBinding(soapKind(), address) {}

KORASoap12Binding::KORASoap12Binding() : SoapBinding(soap12Kind(), std::nullopt) {}
KORASoap12Binding::KORASoap12Binding(const std::string& address)
    : SoapBinding(soap12Kind(), address) {}

}  // namespace kora
