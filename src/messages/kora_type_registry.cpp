#include "messages/kora_type_registry.h"

#include <map>
#include <string>

#include "messages/kora_messages.h"

namespace kora {
namespace {

template <typename Record>
MessageValue readRecord(xmlNodePtr element) {
    return std::shared_ptr<const KoraRecord>(
        std::make_shared<Record>(Record::deserializeNode(element)));
}

template <typename Value>
MessageValue readValue(xmlNodePtr element) {
    std::optional<Value> value = ValueCodec<Value>::deserializeNode(element);
    if (!value) return std::monostate{};
    return std::move(*value);
}

MessageValue readFault(xmlNodePtr element) {
    return SOAPFault::deserializeNode(element);
}

using Registry = std::map<std::string, TypeReader, std::less<>>;

// Built on first use and kept for the process, like the other tables of the
// service client.
const Registry& registry() {
#define KORA_REGISTRY_ROW(Record) {std::string(#Record), &readRecord<Record>},
    static const Registry* const table = new Registry{
        KORA_RECORD_TYPES(KORA_REGISTRY_ROW)  //
        {"SOAPFault", &readFault},
        {"NSString", &readValue<std::string>},
        {"NSNumber", &readValue<double>},
        {"NSDate", &readValue<Date>},
        {"NSData", &readValue<ByteBuffer>},
        {"USBoolean", &readValue<USBoolean>},
    };
#undef KORA_REGISTRY_ROW
    return *table;
}

}  // namespace

TypeReader typeReaderNamed(std::string_view typeName) {
    const auto found = registry().find(typeName);
    return found == registry().end() ? nullptr : found->second;
}

}  // namespace kora
