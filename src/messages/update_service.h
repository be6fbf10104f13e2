#pragma once

#include <optional>

#include "codecs/soap_fault.h"
#include "messages/kora_messages.h"
#include "platform/service_error.h"

namespace kora {

// What one call to the update service gave back. A call always answers: when
// the exchange failed, `error` says why and the body holds nothing.
template <typename Response>
struct ServiceReply {
    // The reply body held at least one recognised part (the expected record
    // or a fault).
    bool hasBodyParts = false;
    // The first body part, when it is the record the call expects.
    std::optional<Response> response;
    // The first body part, when it is a fault.
    std::optional<SOAPFault> fault;
    // What ended the exchange, when it did not end with a reply read whole.
    std::optional<ServiceError> error;
};

// The update service as the controller sees it: one call per operation the
// daemon uses, a request record in, the reply out. Every call waits for its
// reply while the default main context keeps turning, so other sources (client
// calls, the timer) run meanwhile. No state carries over from one call to the
// next.
class UpdateService {
  public:
    virtual ~UpdateService() = default;

    virtual ServiceReply<KORA_CheckResponse> check(const KORA_Check& request) = 0;
    virtual ServiceReply<KORA_DownloadErrorResponse> downloadError(
        const KORA_DownloadError& notice) = 0;
    virtual ServiceReply<KORA_InstallErrorResponse> installError(
        const KORA_InstallError& notice) = 0;
    virtual ServiceReply<KORA_DownloadCompleteResponse> downloadComplete(
        const KORA_DownloadComplete& notice) = 0;
    virtual ServiceReply<KORA_InstallCompleteResponse> installComplete(
        const KORA_InstallComplete& notice) = 0;
    virtual ServiceReply<KORA_UninstallResponse> uninstall(const KORA_Uninstall& notice) = 0;

    // Shutdown: every exchange in flight ends at once as cancelled, and every
    // later call fails without sending anything.
    virtual void cancelAll() = 0;
};

}  // namespace kora
