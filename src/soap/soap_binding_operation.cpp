#include "soap/soap_binding_operation.h"

#include "codecs/service_namespaces.h"
#include "platform/logging.h"
#include "soap/header_description.h"
#include "soap/soap_binding.h"

namespace kora {
namespace {

bool isXmlContentType(const std::string& type) {
    // Case-sensitive substring tests: "application/soap+xml" matches neither.
    return type.find("text/xml") != std::string::npos ||
           type.find("application/xml") != std::string::npos;
}

// The POST of `body` to the configured address, with the header fields in the
// order the service expects: the binding's, then "SOAPAction",
// "Content-Type", "Content-Length" and "Host".
HttpRequest soapRequest(const SoapCallConfiguration& configuration, const std::string& body,
                        std::string_view soapAction) {
    HttpRequest request;
    request.url = configuration.address;
    request.headers = configuration.headers;
    request.headers.emplace_back("SOAPAction", std::string(soapAction));
    request.headers.emplace_back("Content-Type", "text/xml; charset=utf-8");
    request.headers.emplace_back("Content-Length", std::to_string(body.size()));
    if (auto host = hostOfUrl(configuration.address)) request.headers.emplace_back("Host", *host);
    request.body = body;
    request.timeoutSeconds = configuration.timeoutSeconds;
    request.deadline = configuration.deadline;
    return request;
}

}  // namespace

KORASoapBindingOperation::KORASoapBindingOperation(std::shared_ptr<SoapBinding> binding,
                                                   Delegate* delegate)
    : binding_(std::move(binding)),
      configuration_(binding_->callConfiguration()),
      delegate_(delegate) {}

std::string KORASoapBindingOperation::soapAction() const {
    return std::string(KoraServiceNamespace) + "/" + std::string(operationName());
}

void KORASoapBindingOperation::main() {
    response_ = std::make_shared<KORASoapBindingResponse>();
    EnvelopeElements bodyElements;
    if (const KoraRecord* parameters = parameterRecord()) {
        bodyElements.emplace_back(std::string(operationName()), parameters);
    }
    sendHTTPCallUsingBody(
        configuration_.kind.envelope().serializedFormUsingHeaderElements({}, bodyElements),
        soapAction());
}

void KORASoapBindingOperation::sendHTTPCallUsingBody(const std::string& body,
                                                     std::string_view soapAction) {
    const HttpRequest request = soapRequest(configuration_, body, soapAction);
    if (configuration_.logXMLInOut) {
        logDiagnostic("OutputHeaders:\n%s",
                      loggableTrace(headerDescription(request.headers)).c_str());
        logDiagnostic("OutputBody:\n%s", loggableTrace(body).c_str());
    }
    urlConnection_ = HttpExchange::start(request, shared_from_this());
}

std::optional<HttpCredential> KORASoapBindingOperation::didReceiveAuthenticationChallenge(
    bool retrying) {
    if (retrying) {
        didFailWithError(ServiceError{"Connection Authentication", 0, "Authentication Error"});
        return std::nullopt;
    }
    return HttpCredential{configuration_.authUsername, configuration_.authPassword};
}

bool KORASoapBindingOperation::didReceiveResponse(const HttpReplyHead& head) {
    if (configuration_.logXMLInOut) {
        logDiagnostic("ResponseStatus: %u\n", head.status);
        logDiagnostic("ResponseHeaders:\n%s",
                      loggableTrace(headerDescription(head.headers)).c_str());
    }
    response_->setCookies(head.cookies);
    if (auto error = contentTypeError(head)) {
        didFailWithError(*error);
        return false;
    }
    // The HTTP status is not looked at otherwise: a fault sent with status
    // 500 and an XML type is read like any reply.
    if (head.contentLength && *head.contentLength > kMaxReplyBodyBytes) {
        didFailWithError(tooLargeError());
        return false;
    }
    return true;
}

std::optional<ServiceError> KORASoapBindingOperation::contentTypeError(
    const HttpReplyHead& head) const {
    if (head.contentType && isXmlContentType(*head.contentType)) return std::nullopt;
    const std::string& domain = configuration_.kind.httpErrorDomain;
    if (head.status < 400) {
        return ServiceError{
            domain, 1,
            "Unexpected response MIME type to SOAP call:" + head.contentType.value_or("(null)")};
    }
    return ServiceError{domain, static_cast<long>(head.status), standardReasonPhrase(head.status)};
}

// Code 2 of the HTTP domain; code 1 is the wrong content type and codes from
// 400 on are HTTP statuses.
ServiceError KORASoapBindingOperation::tooLargeError() const {
    return ServiceError{configuration_.kind.httpErrorDomain, 2,
                        stringWithFormat("Reply body larger than %zu bytes", kMaxReplyBodyBytes)};
}

bool KORASoapBindingOperation::didReceiveData(std::string_view chunk) {
    if (!responseData_) responseData_.emplace();
    if (responseData_->size() + chunk.size() > kMaxReplyBodyBytes) {
        didFailWithError(tooLargeError());
        return false;
    }
    responseData_->append(chunk);
    return true;
}

void KORASoapBindingOperation::didFailWithError(const ServiceError& error) {
    if (finished_) return;
    if (configuration_.logXMLInOut)
        logDiagnostic("ResponseError:\n%s", loggableTrace(error.text()).c_str());
    response_->setError(error);
    complete();
}

void KORASoapBindingOperation::connectionDidFinishLoading() {
    if (finished_) return;
    if (delegate_ != nullptr) readReplyBody();
    complete();
}

// A reply without body bytes reads like an empty body: it is not a
// well-formed document, so the response carries the XML error and no body
// parts.
void KORASoapBindingOperation::readReplyBody() {
    static const std::string kNoBody;
    const std::string& body = responseData_ ? *responseData_ : kNoBody;
    if (configuration_.logXMLInOut) logDiagnostic("ResponseBody:\n%s", loggableTrace(body).c_str());
    SoapReply reply = readSoapReply(body, responseElementName(), responseReader());
    if (!reply.wellFormed) {
        response_->setError(ServiceError{configuration_.kind.xmlErrorDomain, 1,
                                         "Errors while parsing returned XML"});
        return;
    }
    if (reply.bodyParts) response_->setBodyParts(std::move(reply.bodyParts));
}

void KORASoapBindingOperation::complete() {
    if (finished_) return;
    finished_ = true;
    // Keeps this operation alive while its delegate is told, even when the
    // exchange held the last reference.
    const std::shared_ptr<KORASoapBindingOperation> self = shared_from_this();
    if (const std::shared_ptr<HttpExchange> connection = std::move(urlConnection_)) {
        connection->detach();
    }
    binding_->operation(*this, response_);
}

}  // namespace kora
