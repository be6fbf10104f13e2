#include "service_answers.h"

#include <glib.h>

#include <cmath>
#include <cstdio>

#include "json_text.h"
#include "messages/kora_operations.h"
#include "offer_choice.h"
#include "soap_messages.h"

namespace kora::service {
namespace {

constexpr const char* kNoUpdateID = "00000000-0000-0000-0000-000000000000";

std::string numberText(double value) {
    char buffer[32];
    if (std::trunc(value) == value && std::fabs(value) < 1e15) {
        std::snprintf(buffer, sizeof buffer, "%lld", static_cast<long long>(value));
    } else {
        std::snprintf(buffer, sizeof buffer, "%.17g", value);
    }
    return buffer;
}

// The present fields of a request record, in wire order. Numbers stay JSON
// numbers when finite. An element without text reads as absent, as the
// daemon's own reader has it, and is left out.
std::string fieldsJson(const KoraRecord& record) {
    std::string json = "{";
    for (const FieldView& field : record.fieldValues()) {
        std::string value;
        if (const auto* text = std::get_if<const std::string*>(&field.value)) {
            appendJsonString(value, **text);
        } else if (const auto* number = std::get_if<double>(&field.value)) {
            value = std::isfinite(*number) ? numberText(*number) : "null";
        } else {
            continue;
        }
        if (json.size() > 1) json += ',';
        appendJsonString(json, field.elementName);
        json += ':' + value;
    }
    return json + "}";
}

KORA_cUpdate offerRecord(const Offer& offer, const KORA_Check& check,
                         const RequestContext& context) {
    KORA_cUpdate update;
    update.setInstallationID(check.InstallationID());
    update.setProductID(offer.productId);
    update.setUpdateID(offer.updateId);
    update.setName(offer.name);
    update.setLocation(context.publicBaseUrl + archivePath(offer));
    update.setVersionTo(offer.versionTo);
    update.setSize_(std::to_string(offer.size));
    update.setParameters(offer.parameters);
    update.setHash(offer.hash);
    return update;
}

KORA_CheckResponse answerCheck(const KORA_Check& check, const RequestContext& context,
                               CatalogueStore& store) {
    KORA_CheckResponse response;
    const CheckQuestion question{check.ProductID().value_or(""), check.Brand(), check.Version()};
    const std::optional<Offer> offer =
        check.ProductID() ? newestMatchingOffer(store.offersForProduct(*check.ProductID()), question)
                          : std::nullopt;
    if (offer) {
        response.setCheckResult(offerRecord(*offer, check, context));
    } else {
        // No update: the all-zero UpdateID is what the daemon looks for.
        KORA_cUpdate none;
        none.setInstallationID(check.InstallationID());
        none.setProductID(check.ProductID());
        none.setUpdateID(std::string(kNoUpdateID));
        response.setCheckResult(none);
    }
    return response;
}

// Notices are recorded in the journal; the reply carries no instruction.
template <typename Response>
Response noticeResponse() {
    Response response;
    if constexpr (std::is_same_v<Response, KORA_DownloadErrorResponse>) {
        response.setDownloadErrorResult(KORA_cError{});
    } else if constexpr (std::is_same_v<Response, KORA_InstallErrorResponse>) {
        response.setInstallErrorResult(KORA_cError{});
    }
    return response;
}

template <typename Operation>
bool answerAs(const SoapRequest& request, const RequestContext& context, CatalogueStore& store,
              ServiceAnswer& answer) {
    if (request.operation != Operation::kName) return false;
    const auto& record = static_cast<const typename Operation::Request&>(*request.record);
    typename Operation::Response response;
    if constexpr (std::is_same_v<Operation, CheckOperation>) {
        response = answerCheck(record, context, store);
    } else {
        response = noticeResponse<typename Operation::Response>();
    }
    answer.body = replyEnvelope(request.version, Operation::kResponseElement, response);
    return true;
}

ServiceAnswer faultAnswer(SoapVersion version, FaultSide side, std::string_view reason,
                          unsigned status) {
    ServiceAnswer answer;
    answer.status = status;
    answer.contentType = replyContentType(version);
    answer.body = faultEnvelope(version, side, reason);
    return answer;
}

void answerOperation(const SoapRequest& request, const RequestContext& context,
                     CatalogueStore& store, ServiceAnswer& answer) {
    (answerAs<CheckOperation>(request, context, store, answer) ||
     answerAs<DownloadErrorOperation>(request, context, store, answer) ||
     answerAs<InstallErrorOperation>(request, context, store, answer) ||
     answerAs<DownloadCompleteOperation>(request, context, store, answer) ||
     answerAs<InstallCompleteOperation>(request, context, store, answer) ||
     answerAs<DownloadCancelOperation>(request, context, store, answer) ||
     answerAs<InstallCancelOperation>(request, context, store, answer) ||
     answerAs<UninstallOperation>(request, context, store, answer));
}

JournalEntry entryFor(std::string operation, std::string fields, const RequestContext& context) {
    JournalEntry entry;
    entry.receivedAt = journalTimeNow();
    entry.operation = std::move(operation);
    entry.clientAddress = context.clientAddress;
    entry.fieldsJson = std::move(fields);
    return entry;
}

}  // namespace

ServiceAnswer answerRequest(std::string_view body, const RequestContext& context,
                            CatalogueStore& store) {
    SoapRequest request;
    SoapRequestProblem problem;
    if (!readSoapRequest(body, request, problem)) {
        // SOAP 1.1 reports a sender's fault with 500, SOAP 1.2 with 400.
        const unsigned status = problem.version == SoapVersion::Soap12 ? 400 : 500;
        ServiceAnswer answer = faultAnswer(problem.version, FaultSide::Sender, problem.reason, status);
        answer.journalEntry = entryFor(problem.operation, "{}", context);
        answer.journalEntry.fault = problem.reason;
        return answer;
    }
    ServiceAnswer answer;
    answer.contentType = replyContentType(request.version);
    std::optional<std::string> fault;
    try {
        answerOperation(request, context, store, answer);
    } catch (const StoreError& error) {
        // The request was fine; the service is at fault, and says so.
        fault = std::string("The catalogue cannot be read: ") + error.what();
        answer = faultAnswer(request.version, FaultSide::Receiver, *fault, 500);
    }
    answer.journalEntry = entryFor(request.operation, fieldsJson(*request.record), context);
    answer.journalEntry.fault = fault;
    return answer;
}

ServiceAnswer refusal(unsigned status, std::string_view reason, const RequestContext& context) {
    ServiceAnswer answer = faultAnswer(SoapVersion::Soap11, FaultSide::Sender, reason, status);
    answer.journalEntry = entryFor("", "{}", context);
    answer.journalEntry.fault = std::string(reason);
    return answer;
}

std::string archivePath(const Offer& offer) {
    g_autofree char* name = g_uri_escape_string(offer.fileName.c_str(), nullptr, false);
    return "/archives/" + offer.updateId + "/" + name;
}

std::string journalTimeNow() {
    g_autoptr(GDateTime) now = g_date_time_new_now_utc();
    g_autofree char* text = g_date_time_format(now, "%Y-%m-%dT%H:%M:%S.%fZ");
    return text;
}

}  // namespace kora::service
