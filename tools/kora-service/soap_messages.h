#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "messages/kora_record.h"

namespace kora::service {

// Clients are answered in the SOAP version they wrote in. The daemon writes
// SOAP 1.1 envelopes and reads any reply sent as "text/xml".
enum class SoapVersion { Soap11, Soap12 };

// A request's Body, read as the request record of its operation.
struct SoapRequest {
    SoapVersion version = SoapVersion::Soap11;
    std::string operation;  // the Body's first element, e.g. "Check"
    std::unique_ptr<KoraRecord> record;
};

// Why a request cannot be answered, in words for its sender. `operation`
// holds the Body's element name when one was found.
struct SoapRequestProblem {
    SoapVersion version = SoapVersion::Soap11;
    std::string operation;
    std::string reason;
};

// Reads a request envelope. Returns false and fills `problem` for anything but
// a SOAP 1.1 or 1.2 envelope whose Body starts with one of the eight operations.
bool readSoapRequest(std::string_view body, SoapRequest& request, SoapRequestProblem& problem);

// The reply envelope holding `response` as "KORA:<elementName>".
std::string replyEnvelope(SoapVersion version, std::string_view elementName,
                          const KoraRecord& response);

// Who is to blame for a fault: the sender of the request or the service.
enum class FaultSide { Sender, Receiver };

std::string faultEnvelope(SoapVersion version, FaultSide side, std::string_view reason);

// The Content-Type of a reply in `version`.
const char* replyContentType(SoapVersion version);

}  // namespace kora::service
