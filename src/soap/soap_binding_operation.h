#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "messages/kora_operations.h"
#include "platform/http_exchange.h"
#include "soap/soap_binding_response.h"
#include "soap/soap_call_configuration.h"
#include "soap/soap_reply.h"

namespace kora {

class SoapBinding;

// One call in flight: it writes the envelope, sends it with the configuration
// its binding gave it, follows the HTTP exchange and fills its response. It
// completes exactly once, on every path (reply read, unreadable reply, refused
// content type, transport failure, second authentication challenge, oversized
// reply), and only then hands its response to its binding, which tells the
// delegate. The exchange holds the operation until that moment.
class KORASoapBindingOperation : public HttpExchangeDelegate,
                                 public std::enable_shared_from_this<KORASoapBindingOperation> {
  public:
    using Delegate = KORASoapBindingResponseDelegate;

    // Takes the binding's configuration as it is now.
    KORASoapBindingOperation(std::shared_ptr<SoapBinding> binding, Delegate* delegate);

    SoapBinding& binding() const { return *binding_; }
    const SoapCallConfiguration& configuration() const { return configuration_; }
    const std::shared_ptr<KORASoapBindingResponse>& response() const { return response_; }
    Delegate* delegate() const { return delegate_; }
    void setDelegate(Delegate* delegate) { delegate_ = delegate; }
    // The reply body received so far; absent until the first bytes.
    const std::optional<std::string>& responseData() const { return responseData_; }
    bool isFinished() const { return finished_; }

    // Writes the envelope and sends it; the answer comes through the main loop.
    void main();

    // What each operation knows of itself.
    virtual std::string_view operationName() const = 0;
    virtual std::string_view responseElementName() const = 0;
    virtual const KoraRecord* parameterRecord() const = 0;
    virtual ResponseReader responseReader() const = 0;
    // The service namespace, "/" and the operation name.
    std::string soapAction() const;

    // Posts the envelope and makes the exchange this operation's connection.
    // (Here the operation sends, not its binding: it holds the configuration,
    // so the two need not call into each other.)
    void sendHTTPCallUsingBody(const std::string& body, std::string_view soapAction);

    // The exchange's reports.
    std::optional<HttpCredential> didReceiveAuthenticationChallenge(bool retrying) override;
    bool didReceiveResponse(const HttpReplyHead& head) override;
    bool didReceiveData(std::string_view chunk) override;
    void didFailWithError(const ServiceError& error) override;
    void connectionDidFinishLoading() override;

  private:
    std::optional<ServiceError> contentTypeError(const HttpReplyHead& head) const;
    ServiceError tooLargeError() const;
    void readReplyBody();
    void complete();

    std::shared_ptr<SoapBinding> binding_;
    const SoapCallConfiguration configuration_;
    std::shared_ptr<KORASoapBindingResponse> response_;
    Delegate* delegate_;
    std::optional<std::string> responseData_;
    std::shared_ptr<HttpExchange> urlConnection_;
    bool finished_ = false;
};

// The operation subclass of one service operation, holding its request record.
template <typename Operation>
class KoraBindingOperation final : public KORASoapBindingOperation {
  public:
    using Request = typename Operation::Request;
    using Response = typename Operation::Response;

    KoraBindingOperation(std::shared_ptr<SoapBinding> binding, Delegate* delegate,
                         std::optional<Request> parameters)
        : KORASoapBindingOperation(std::move(binding), delegate),
          parameters_(std::move(parameters)) {}

    const std::optional<Request>& parameters() const { return parameters_; }
    void setParameters(std::optional<Request> parameters) { parameters_ = std::move(parameters); }

    std::string_view operationName() const override { return Operation::kName; }
    std::string_view responseElementName() const override { return Operation::kResponseElement; }
    const KoraRecord* parameterRecord() const override {
        return parameters_ ? &*parameters_ : nullptr;
    }
    ResponseReader responseReader() const override {
        return [](xmlNodePtr element) -> std::shared_ptr<const KoraRecord> {
            return std::make_shared<Response>(Response::deserializeNode(element));
        };
    }

  private:
    std::optional<Request> parameters_;
};

// Both binding kinds send the same operations; the kind shows only in the
// error domains, which the operation takes from its configuration.
using KORASoap12BindingOperation = KORASoapBindingOperation;

using KORASoapBinding_Check = KoraBindingOperation<CheckOperation>;
using KORASoapBinding_DownloadError = KoraBindingOperation<DownloadErrorOperation>;
using KORASoapBinding_InstallError = KoraBindingOperation<InstallErrorOperation>;
using KORASoapBinding_DownloadComplete = KoraBindingOperation<DownloadCompleteOperation>;
using KORASoapBinding_InstallComplete = KoraBindingOperation<InstallCompleteOperation>;
using KORASoapBinding_DownloadCancel = KoraBindingOperation<DownloadCancelOperation>;
using KORASoapBinding_InstallCancel = KoraBindingOperation<InstallCancelOperation>;
using KORASoapBinding_Uninstall = KoraBindingOperation<UninstallOperation>;

using KORASoap12Binding_Check = KORASoapBinding_Check;
using KORASoap12Binding_DownloadError = KORASoapBinding_DownloadError;
using KORASoap12Binding_InstallError = KORASoapBinding_InstallError;
using KORASoap12Binding_DownloadComplete = KORASoapBinding_DownloadComplete;
using KORASoap12Binding_InstallComplete = KORASoapBinding_InstallComplete;
using KORASoap12Binding_DownloadCancel = KORASoapBinding_DownloadCancel;
using KORASoap12Binding_InstallCancel = KORASoapBinding_InstallCancel;
using KORASoap12Binding_Uninstall = KORASoapBinding_Uninstall;

}  // namespace kora
