#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "platform/http_exchange.h"

namespace kora {

class SoapEnvelopeWriter;

// What tells the two binding kinds apart: their names and error domains. On
// the wire they are the same.
struct BindingKind {
    std::string_view className;
    std::string httpErrorDomain;  // "<class>ResponseHTTP"
    std::string xmlErrorDomain;   // "<class>ResponseXML"
    const SoapEnvelopeWriter& (*envelope)();
};

// What one call takes from its binding when it is made. The operation reads
// nothing else of the binding, so a change to the binding while a call is in
// flight leaves that call as it was started.
struct SoapCallConfiguration {
    const BindingKind& kind;
    std::string address;
    // The header fields the binding sends with every call ("Cookie" when it
    // holds cookies, "User-Agent"); each call adds its own after them.
    HttpHeaders headers;
    unsigned timeoutSeconds = 0;
    std::chrono::milliseconds deadline = kExchangeDeadline;
    std::optional<std::string> authUsername;
    std::optional<std::string> authPassword;
    bool logXMLInOut = false;
};

}  // namespace kora
