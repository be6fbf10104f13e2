#pragma once

#include <string>
#include <string_view>

#include "catalogue_store.h"

namespace kora::service {

// An HTTP reply to one request, and what goes into the journal about it.
struct ServiceAnswer {
    unsigned status = 200;
    std::string contentType;
    std::string body;
    JournalEntry journalEntry;
};

// What the service knows about one request besides its body.
struct RequestContext {
    std::string clientAddress;
    // The URL under which this server's archives are reachable for the
    // client, without the trailing "/": "http://host:port".
    std::string publicBaseUrl;
};

// The service's answer to a request body: the operation's reply, or a SOAP
// fault for a request it cannot read. Throws StoreError when the catalogue
// cannot be read.
ServiceAnswer answerRequest(std::string_view body, const RequestContext& context,
                            CatalogueStore& store);

// The answer to a request that is refused before its body is read.
ServiceAnswer refusal(unsigned status, std::string_view reason, const RequestContext& context);

// The path under which an offer's archive is served.
std::string archivePath(const Offer& offer);

// The current time as the journal writes it: ISO 8601 in UTC.
std::string journalTimeNow();

}  // namespace kora::service
