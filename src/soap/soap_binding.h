#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/input_limits.h"
#include "platform/http_exchange.h"
#include "messages/kora_messages.h"
#include "soap/soap_binding_response.h"
#include "soap/soap_envelope.h"

namespace kora {

// What tells the two binding kinds apart: their names and error domains. On
// the wire they are the same.
struct BindingKind {
    std::string_view className;
    std::string httpErrorDomain;  // "<class>ResponseHTTP"
    std::string xmlErrorDomain;   // "<class>ResponseXML"
    const SoapEnvelopeWriter& (*envelope)();
};

// The client-side proxy of the update service. Each call builds the SOAP
// envelope around its request record, posts it to `address` and hands back a
// response. A synchronous call keeps the default GLib main context turning
// until its reply is in, so other sources (timers, D-Bus calls) run meanwhile
// and may start calls of their own, which nest.
//
// Keep a binding in a std::shared_ptr (the factories of KORA do) when making
// asynchronous calls: operations in flight then keep it alive.
class SoapBinding : public KORASoapBindingResponseDelegate,
                    public std::enable_shared_from_this<SoapBinding> {
  public:
    using Response = KORASoapBindingResponse;
    using ResponsePtr = std::shared_ptr<KORASoapBindingResponse>;
    using Delegate = KORASoapBindingResponseDelegate;

    const BindingKind& kind() const { return kind_; }

    const std::optional<std::string>& address() const { return address_; }
    void setAddress(std::optional<std::string> address) { address_ = std::move(address); }
    double defaultTimeout() const { return defaultTimeout_; }
    void setDefaultTimeout(double seconds) { defaultTimeout_ = seconds; }
    // However steadily a reply comes in, an exchange ends as timed out after
    // this long (the time-out above measures only inactivity); 0: never.
    std::chrono::milliseconds exchangeDeadline() const { return exchangeDeadline_; }
    void setExchangeDeadline(std::chrono::milliseconds deadline) { exchangeDeadline_ = deadline; }
    const std::optional<std::vector<HttpCookie>>& cookies() const { return cookies_; }
    void setCookies(std::optional<std::vector<HttpCookie>> cookies) {
        cookies_ = std::move(cookies);
    }
    void addCookie(const std::optional<HttpCookie>& cookie);
    bool logXMLInOut() const { return logXMLInOut_; }
    void setLogXMLInOut(bool log) { logXMLInOut_ = log; }
    bool synchronousOperationComplete() const { return synchronousOperationComplete_; }
    void setSynchronousOperationComplete(bool done) { synchronousOperationComplete_ = done; }
    const std::optional<std::string>& authUsername() const { return authUsername_; }
    void setAuthUsername(std::optional<std::string> user) { authUsername_ = std::move(user); }
    const std::optional<std::string>& authPassword() const { return authPassword_; }
    void setAuthPassword(std::optional<std::string> password) {
        authPassword_ = std::move(password);
    }

    ResponsePtr CheckUsingParameters(const std::optional<KORA_Check>& parameters);
    ResponsePtr DownloadErrorUsingParameters(const std::optional<KORA_DownloadError>& parameters);
    ResponsePtr InstallErrorUsingParameters(const std::optional<KORA_InstallError>& parameters);
    ResponsePtr DownloadCompleteUsingParameters(
        const std::optional<KORA_DownloadComplete>& parameters);
    ResponsePtr InstallCompleteUsingParameters(
        const std::optional<KORA_InstallComplete>& parameters);
    ResponsePtr DownloadCancelUsingParameters(const std::optional<KORA_DownloadCancel>& parameters);
    ResponsePtr InstallCancelUsingParameters(const std::optional<KORA_InstallCancel>& parameters);
    ResponsePtr UninstallUsingParameters(const std::optional<KORA_Uninstall>& parameters);

    // The delegate is told later, from the main loop; it is not owned.
    void CheckAsyncUsingParameters(const std::optional<KORA_Check>& parameters, Delegate* delegate);
    void DownloadErrorAsyncUsingParameters(const std::optional<KORA_DownloadError>& parameters,
                                           Delegate* delegate);
    void InstallErrorAsyncUsingParameters(const std::optional<KORA_InstallError>& parameters,
                                          Delegate* delegate);
    void DownloadCompleteAsyncUsingParameters(
        const std::optional<KORA_DownloadComplete>& parameters, Delegate* delegate);
    void InstallCompleteAsyncUsingParameters(const std::optional<KORA_InstallComplete>& parameters,
                                             Delegate* delegate);
    void DownloadCancelAsyncUsingParameters(const std::optional<KORA_DownloadCancel>& parameters,
                                            Delegate* delegate);
    void InstallCancelAsyncUsingParameters(const std::optional<KORA_InstallCancel>& parameters,
                                           Delegate* delegate);
    void UninstallAsyncUsingParameters(const std::optional<KORA_Uninstall>& parameters,
                                       Delegate* delegate);

    ResponsePtr performSynchronousOperation(
        const std::shared_ptr<KORASoapBindingOperation>& operation);
    void performAsynchronousOperation(const std::shared_ptr<KORASoapBindingOperation>& operation);

    // The binding is the delegate of its own synchronous calls.
    void operation(KORASoapBindingOperation& operation, const ResponsePtr& response) override;

    // Posts the envelope for `operation` and makes the exchange its connection.
    void sendHTTPCallUsingBody(const std::string& body, std::string_view soapAction,
                               KORASoapBindingOperation& operation);

  protected:
    SoapBinding(const BindingKind& kind, std::optional<std::string> address);

  private:
    template <typename Operation>
    ResponsePtr callSynchronously(const std::optional<typename Operation::Request>& parameters);
    template <typename Operation>
    void callAsynchronously(const std::optional<typename Operation::Request>& parameters,
                            Delegate* delegate);
    std::shared_ptr<SoapBinding> self();
    HttpHeaders requestHeaders(std::size_t bodyLength, std::string_view soapAction) const;

    const BindingKind& kind_;
    std::optional<std::string> address_;
    double defaultTimeout_;
    std::chrono::milliseconds exchangeDeadline_ = kExchangeDeadline;
    std::optional<std::vector<HttpCookie>> cookies_;
    bool logXMLInOut_ = false;
    bool synchronousOperationComplete_ = false;
    std::optional<std::string> authUsername_;
    std::optional<std::string> authPassword_;
};

// The SOAP 1.1 binding: errors in the "KORASoapBindingResponse..." domains.
class KORASoapBinding final : public SoapBinding {
  public:
    KORASoapBinding();
    explicit KORASoapBinding(const std::string& address);
};

// The binding the daemon uses: errors in the "KORASoap12BindingResponse..."
// domains. It sends the same SOAP 1.1 envelope as KORASoapBinding.
class KORASoap12Binding final : public SoapBinding {
  public:
    KORASoap12Binding();
    explicit KORASoap12Binding(const std::string& address);
};

}  // namespace kora
