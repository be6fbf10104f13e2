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

// A record's row: its xsi:type text and its reader.
template <typename Record>
std::pair<const std::string, TypeReader> recordRow() {
    return {std::string(Record::kXsiType), &readRecord<Record>};
}

using Registry = std::map<std::string, TypeReader, std::less<>>;

// Built on first use and kept for the process, like the other tables of the
// service client.
const Registry& registry() {
    static const Registry* const table = new Registry{
        recordRow<KORA_Check>(),
        recordRow<KORA_cUpdate>(),
        recordRow<KORA_CheckResponse>(),
        recordRow<KORA_DownloadError>(),
        recordRow<KORA_cError>(),
        recordRow<KORA_DownloadErrorResponse>(),
        recordRow<KORA_InstallError>(),
        recordRow<KORA_InstallErrorResponse>(),
        recordRow<KORA_DownloadComplete>(),
        recordRow<KORA_DownloadCompleteResponse>(),
        recordRow<KORA_InstallComplete>(),
        recordRow<KORA_InstallCompleteResponse>(),
        recordRow<KORA_DownloadCancel>(),
        recordRow<KORA_DownloadCancelResponse>(),
        recordRow<KORA_InstallCancel>(),
        recordRow<KORA_InstallCancelResponse>(),
        recordRow<KORA_Uninstall>(),
        recordRow<KORA_UninstallResponse>(),
        {"SOAPFault", &readFault},
        {"NSString", &readValue<std::string>},
        {"NSNumber", &readValue<double>},
        {"NSDate", &readValue<Date>},
        {"NSData", &readValue<ByteBuffer>},
        {"USBoolean", &readValue<USBoolean>},
    };
    return *table;
}

}  // namespace

TypeReader typeReaderNamed(std::string_view typeName) {
    const auto found = registry().find(typeName);
    return found == registry().end() ? nullptr : found->second;
}

}  // namespace kora
