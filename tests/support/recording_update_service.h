#pragma once

#include <string>
#include <vector>

#include "messages/update_service.h"

namespace kora::testing_support {

// An update service that answers every call at once and keeps a list of the
// calls, by operation name, with the Uninstall notices it was given.
// Answers are the expected record unless `fail` is set: then a transport
// error with no body.
class RecordingUpdateService : public UpdateService {
  public:
    ServiceReply<KORA_CheckResponse> check(const KORA_Check&) override {
        return answer<KORA_CheckResponse>("Check");
    }
    ServiceReply<KORA_DownloadErrorResponse> downloadError(const KORA_DownloadError&) override {
        return answer<KORA_DownloadErrorResponse>("DownloadError");
    }
    ServiceReply<KORA_InstallErrorResponse> installError(const KORA_InstallError&) override {
        return answer<KORA_InstallErrorResponse>("InstallError");
    }
    ServiceReply<KORA_DownloadCompleteResponse> downloadComplete(
        const KORA_DownloadComplete&) override {
        return answer<KORA_DownloadCompleteResponse>("DownloadComplete");
    }
    ServiceReply<KORA_InstallCompleteResponse> installComplete(
        const KORA_InstallComplete&) override {
        return answer<KORA_InstallCompleteResponse>("InstallComplete");
    }
    ServiceReply<KORA_UninstallResponse> uninstall(const KORA_Uninstall& notice) override {
        uninstallNotices.push_back(notice);
        return answer<KORA_UninstallResponse>("Uninstall");
    }
    void cancelAll() override { calls.push_back("cancelAll"); }

    std::vector<std::string> calls;
    std::vector<KORA_Uninstall> uninstallNotices;
    bool fail = false;

  private:
    template <typename Response>
    ServiceReply<Response> answer(const char* operation) {
        calls.push_back(operation);
        ServiceReply<Response> reply;
        if (fail) {
            reply.error = ServiceError{"NSURLErrorDomain", -1004, "Could not connect"};
        } else {
            reply.hasBodyParts = true;
            reply.response = Response();
        }
        return reply;
    }
};

}  // namespace kora::testing_support
