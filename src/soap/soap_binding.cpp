#include "soap/soap_binding.h"

#include <glib.h>

#include <cmath>

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

void SoapBinding::operation(KORASoapBindingOperation& operation, const ResponsePtr& response) {
    if (response->cookies()) cookies_ = response->cookies();
    if (operation.delegate() == this) {
        synchronousOperationComplete_ = true;
    } else if (operation.delegate() != nullptr) {
        operation.delegate()->operation(operation, response);
    }
}

SoapCallConfiguration SoapBinding::callConfiguration() const {
    HttpHeaders headers;
    if (cookies_ && !cookies_->empty()) headers.emplace_back("Cookie", cookieHeader(*cookies_));
    headers.emplace_back("User-Agent", kKoraUserAgent);
    return SoapCallConfiguration{
        .kind = kind_,
        .address = address_.value_or(""),
        .headers = std::move(headers),
        .timeoutSeconds = timeoutSeconds(defaultTimeout_),
        .deadline = exchangeDeadline_,
        .authUsername = authUsername_,
        .authPassword = authPassword_,
        .logXMLInOut = logXMLInOut_,
    };
}

// The eight operations, each as a synchronous call, with the binding as the
// operation's delegate, and as an asynchronous call, with the caller's.

SoapBinding::ResponsePtr SoapBinding::CheckUsingParameters(
    const std::optional<KORA_Check>& parameters) {
    return performSynchronousOperation(
        std::make_shared<KORASoapBinding_Check>(self(), this, parameters));
}

void SoapBinding::CheckAsyncUsingParameters(const std::optional<KORA_Check>& parameters,
                                            Delegate* delegate) {
    performAsynchronousOperation(
        std::make_shared<KORASoapBinding_Check>(self(), delegate, parameters));
}

SoapBinding::ResponsePtr SoapBinding::DownloadErrorUsingParameters(
    const std::optional<KORA_DownloadError>& parameters) {
    return performSynchronousOperation(
        std::make_shared<KORASoapBinding_DownloadError>(self(), this, parameters));
}

void SoapBinding::DownloadErrorAsyncUsingParameters(
    const std::optional<KORA_DownloadError>& parameters, Delegate* delegate) {
    performAsynchronousOperation(
        std::make_shared<KORASoapBinding_DownloadError>(self(), delegate, parameters));
}

SoapBinding::ResponsePtr SoapBinding::InstallErrorUsingParameters(
    const std::optional<KORA_InstallError>& parameters) {
    return performSynchronousOperation(
        std::make_shared<KORASoapBinding_InstallError>(self(), this, parameters));
}

void SoapBinding::InstallErrorAsyncUsingParameters(
    const std::optional<KORA_InstallError>& parameters, Delegate* delegate) {
    performAsynchronousOperation(
        std::make_shared<KORASoapBinding_InstallError>(self(), delegate, parameters));
}

SoapBinding::ResponsePtr SoapBinding::DownloadCompleteUsingParameters(
    const std::optional<KORA_DownloadComplete>& parameters) {
    return performSynchronousOperation(
        std::make_shared<KORASoapBinding_DownloadComplete>(self(), this, parameters));
}

void SoapBinding::DownloadCompleteAsyncUsingParameters(
    const std::optional<KORA_DownloadComplete>& parameters, Delegate* delegate) {
    performAsynchronousOperation(
        std::make_shared<KORASoapBinding_DownloadComplete>(self(), delegate, parameters));
}

SoapBinding::ResponsePtr SoapBinding::InstallCompleteUsingParameters(
    const std::optional<KORA_InstallComplete>& parameters) {
    return performSynchronousOperation(
        std::make_shared<KORASoapBinding_InstallComplete>(self(), this, parameters));
}

void SoapBinding::InstallCompleteAsyncUsingParameters(
    const std::optional<KORA_InstallComplete>& parameters, Delegate* delegate) {
    performAsynchronousOperation(
        std::make_shared<KORASoapBinding_InstallComplete>(self(), delegate, parameters));
}

SoapBinding::ResponsePtr SoapBinding::DownloadCancelUsingParameters(
    const std::optional<KORA_DownloadCancel>& parameters) {
    return performSynchronousOperation(
        std::make_shared<KORASoapBinding_DownloadCancel>(self(), this, parameters));
}

void SoapBinding::DownloadCancelAsyncUsingParameters(
    const std::optional<KORA_DownloadCancel>& parameters, Delegate* delegate) {
    performAsynchronousOperation(
        std::make_shared<KORASoapBinding_DownloadCancel>(self(), delegate, parameters));
}

SoapBinding::ResponsePtr SoapBinding::InstallCancelUsingParameters(
    const std::optional<KORA_InstallCancel>& parameters) {
    return performSynchronousOperation(
        std::make_shared<KORASoapBinding_InstallCancel>(self(), this, parameters));
}

void SoapBinding::InstallCancelAsyncUsingParameters(
    const std::optional<KORA_InstallCancel>& parameters, Delegate* delegate) {
    performAsynchronousOperation(
        std::make_shared<KORASoapBinding_InstallCancel>(self(), delegate, parameters));
}

SoapBinding::ResponsePtr SoapBinding::UninstallUsingParameters(
    const std::optional<KORA_Uninstall>& parameters) {
    return performSynchronousOperation(
        std::make_shared<KORASoapBinding_Uninstall>(self(), this, parameters));
}

void SoapBinding::UninstallAsyncUsingParameters(const std::optional<KORA_Uninstall>& parameters,
                                                Delegate* delegate) {
    performAsynchronousOperation(
        std::make_shared<KORASoapBinding_Uninstall>(self(), delegate, parameters));
}

KORASoapBinding::KORASoapBinding() : SoapBinding(soapKind(), std::nullopt) {}
KORASoapBinding::KORASoapBinding(const std::string& address) : SoapBinding(soapKind(), address) {}

KORASoap12Binding::KORASoap12Binding() : SoapBinding(soap12Kind(), std::nullopt) {}
KORASoap12Binding::KORASoap12Binding(const std::string& address)
    : SoapBinding(soap12Kind(), address) {}

}  // namespace kora
