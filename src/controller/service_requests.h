#pragma once

#include <memory>
#include <optional>
#include <string>

#include "messages/kora_messages.h"
#include "platform/clock.h"
#include "platform/machine_facts.h"
#include "registry/kora_application.h"
#include "update/kora_update.h"

namespace kora {

// The values every request to the update service carries besides the
// application's own.
inline constexpr const char* kRegionSent = "Europe";
inline constexpr const char* kCountrySent = "FI";
inline constexpr const char* kAdditionalInfoSent = "Status=INSTALLED;";

// The Check request for one registered application. The machine's identity is
// asked afresh for every request.
KORA_Check checkRequestFor(const KoraApplication& application, const MachineFacts& facts);

// A notice about `update` (DownloadError, DownloadComplete, InstallError or
// InstallComplete). `application` is the registry's record for the update's
// identifier, or null when the application is no longer registered: its
// fields are then absent. StartTime, and FinishTime for the two completion
// notices, are the clock's time as the notice is built, in stored date text.
template <typename Notice>
Notice noticeFor(const KoraUpdate& update, const KoraApplication* application,
                 const MachineFacts& facts, const Clock& clock);

// The update a Check reply offers the application `identifier`. A reply
// without a result, a result without an UpdateID or with the all-zero one
// offers nothing; one without a download location is refused too, since its
// update could never download. Then `update` is null and `refusal` is the
// log line.
struct Offer {
    std::shared_ptr<KoraUpdate> update;
    // Why the offer was not taken up, for the log; empty when it was.
    std::string refusal;
};
Offer updateFromOffer(const std::string& identifier, const KORA_CheckResponse& response);

}  // namespace kora
