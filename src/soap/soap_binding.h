#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "messages/kora_messages.h"
#include "platform/http_exchange.h"
#include "platform/input_limits.h"
#include "soap/soap_binding_response.h"
#include "soap/soap_call_configuration.h"
#include "soap/soap_envelope.h"

namespace kora {

// The client-side proxy of the update service. Each call builds the SOAP
// envelope around its request record, posts it to `address` and hands back a
// response. Each call's operation takes the binding's settings as they are
// when the call is made (callConfiguration()) and hands the reply's cookies
// back in its response. A synchronous call keeps the default GLib main context turning
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

    // Every call of this binding ends here. The reply's cookies replace the
    // binding's; then a synchronous call's wait ends, or an asynchronous
    // call's delegate is told. (Besides marking the synchronous call
    // complete, the binding keeps the cookies here, so that the operation
    // never writes into its binding.)
    void operation(KORASoapBindingOperation& operation, const ResponsePtr& response) override;

    // The settings a call made now is sent with.
    SoapCallConfiguration callConfiguration() const;

  protected:
    SoapBinding(const BindingKind& kind, std::optional<std::string> address);

  private:
    std::shared_ptr<SoapBinding> self();

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
