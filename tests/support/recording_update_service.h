#pragma once

#include <deque>
#include <functional>
#include <string>
#include <variant>
#include <vector>

#include "messages/update_service.h"

namespace kora::testing_support {

// An update service that answers every call at once and keeps a list of the
// calls, by operation name, with the records it was given.
// Answers are the expected record unless `fail` is set: then a transport
// error with no body. Check answers come from `checkReplies` while it holds any.
class RecordingUpdateService : public UpdateService {
  public:
    using Request = std::variant<KORA_Check, KORA_DownloadError, KORA_InstallError,
                                 KORA_DownloadComplete, KORA_InstallComplete, KORA_Uninstall>;

    ServiceReply<KORA_CheckResponse> check(const KORA_Check& request) override {
        if (checkReplies.empty()) return answer<KORA_CheckResponse>("Check", request);
        record("Check", request);
        auto reply = checkReplies.front();
        checkReplies.pop_front();
        return reply;
    }
    ServiceReply<KORA_DownloadErrorResponse> downloadError(const KORA_DownloadError& notice) override {
        return answer<KORA_DownloadErrorResponse>("DownloadError", notice);
    }
    ServiceReply<KORA_InstallErrorResponse> installError(const KORA_InstallError& notice) override {
        return answer<KORA_InstallErrorResponse>("InstallError", notice);
    }
    ServiceReply<KORA_DownloadCompleteResponse> downloadComplete(
        const KORA_DownloadComplete& notice) override {
        return answer<KORA_DownloadCompleteResponse>("DownloadComplete", notice);
    }
    ServiceReply<KORA_InstallCompleteResponse> installComplete(
        const KORA_InstallComplete& notice) override {
        return answer<KORA_InstallCompleteResponse>("InstallComplete", notice);
    }
    ServiceReply<KORA_UninstallResponse> uninstall(const KORA_Uninstall& notice) override {
        uninstallNotices.push_back(notice);
        return answer<KORA_UninstallResponse>("Uninstall", notice);
    }
    void cancelAll() override { calls.push_back("cancelAll"); }

    // A Check answer offering `offer`.
    static ServiceReply<KORA_CheckResponse> offering(const KORA_cUpdate& offer) {
        ServiceReply<KORA_CheckResponse> reply;
        reply.hasBodyParts = true;
        reply.response.emplace().setCheckResult(offer);
        return reply;
    }

    std::vector<std::string> calls;
    std::vector<Request> requests;
    std::vector<KORA_Uninstall> uninstallNotices;
    std::deque<ServiceReply<KORA_CheckResponse>> checkReplies;
    // Runs as each call arrives, before it is answered.
    std::function<void(const std::string& operation)> onCall;
    bool fail = false;

  private:
    void record(const char* operation, Request request) {
        calls.push_back(operation);
        requests.push_back(std::move(request));
        if (onCall) onCall(operation);
    }

    template <typename Response>
    ServiceReply<Response> answer(const char* operation, Request request) {
        record(operation, std::move(request));
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
