#include "soap/soap_update_service.h"

#include <utility>

#include "platform/http_exchange.h"
#include "soap/kora.h"
#include "soap/soap_binding.h"

namespace kora {
namespace {

template <typename Response>
ServiceReply<Response> replyOf(const KORASoap12BindingResponse& response) {
    ServiceReply<Response> reply;
    reply.hasBodyParts = response.bodyParts() && !response.bodyParts()->empty();
    if (const auto* record = response.firstBodyPartAs<Response>()) reply.response = *record;
    if (const auto* fault = response.firstBodyPartAs<SOAPFault>()) reply.fault = *fault;
    reply.error = response.error();
    return reply;
}

// A binding lives for one exchange.
std::shared_ptr<KORASoap12Binding> newBinding(const std::string& address) {
    auto binding = KORA::KORASoap12Binding(address);
    binding->setLogXMLInOut(true);
    return binding;
}

}  // namespace

SoapUpdateService::SoapUpdateService(std::string address) : address_(std::move(address)) {}

ServiceReply<KORA_CheckResponse> SoapUpdateService::check(const KORA_Check& request) {
    return replyOf<KORA_CheckResponse>(*newBinding(address_)->CheckUsingParameters(request));
}

ServiceReply<KORA_DownloadErrorResponse> SoapUpdateService::downloadError(
    const KORA_DownloadError& notice) {
    return replyOf<KORA_DownloadErrorResponse>(
        *newBinding(address_)->DownloadErrorUsingParameters(notice));
}

ServiceReply<KORA_InstallErrorResponse> SoapUpdateService::installError(
    const KORA_InstallError& notice) {
    return replyOf<KORA_InstallErrorResponse>(
        *newBinding(address_)->InstallErrorUsingParameters(notice));
}

ServiceReply<KORA_DownloadCompleteResponse> SoapUpdateService::downloadComplete(
    const KORA_DownloadComplete& notice) {
    return replyOf<KORA_DownloadCompleteResponse>(
        *newBinding(address_)->DownloadCompleteUsingParameters(notice));
}

ServiceReply<KORA_InstallCompleteResponse> SoapUpdateService::installComplete(
    const KORA_InstallComplete& notice) {
    return replyOf<KORA_InstallCompleteResponse>(
        *newBinding(address_)->InstallCompleteUsingParameters(notice));
}

ServiceReply<KORA_UninstallResponse> SoapUpdateService::uninstall(const KORA_Uninstall& notice) {
    return replyOf<KORA_UninstallResponse>(*newBinding(address_)->UninstallUsingParameters(notice));
}

void SoapUpdateService::cancelAll() {
    HttpExchange::cancelAll();
}

}  // namespace kora
