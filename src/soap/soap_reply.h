#pragma once

#include <libxml/tree.h>

#include <memory>
#include <optional>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

#include "messages/kora_record.h"
#include "codecs/soap_fault.h"

namespace kora {

// A recognised child of a reply's Body: the expected response record or a fault.
using BodyPart = std::variant<std::shared_ptr<const KoraRecord>, SOAPFault>;

// The part as a `T` (a record type or SOAPFault), or null when it is something else.
template <typename T>
const T* bodyPartAs(const BodyPart& part) {
    if constexpr (std::is_same_v<T, SOAPFault>) {
        return std::get_if<SOAPFault>(&part);
    } else {
        const auto* record = std::get_if<std::shared_ptr<const KoraRecord>>(&part);
        return record ? dynamic_cast<const T*>(record->get()) : nullptr;
    }
}

// Reads the response element of one operation (its record's deserializeNode).
using ResponseReader = std::shared_ptr<const KoraRecord> (*)(xmlNodePtr element);

struct SoapReply {
    bool wellFormed = false;
    // One entry per recognised Body child; absent when the reply has no Body.
    std::optional<std::vector<BodyPart>> bodyParts;
};

// Reads a reply body without the network: the direct children of the root
// named "Body" (in any namespace) yield the children named `responseElement`,
// read with `readResponse`, and the Faults that share Body's prefix. A later
// Body replaces the parts of an earlier one.
//
// Replies are untrusted: the parser never loads anything from the network or
// from files, and a reply carrying a document type declaration (which SOAP
// does not allow, and which could define expanding entities) counts as not
// well-formed.
SoapReply readSoapReply(std::string_view body, std::string_view responseElement,
                        ResponseReader readResponse);

}  // namespace kora
