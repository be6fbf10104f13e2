// Reply bytes from the service, read the way a binding reads them. The first
// byte picks the operation, and with it the response element and record.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "messages/kora_operations.h"
#include "soap/soap_reply.h"

namespace {

template <typename Operation>
kora::SoapReply readAs(std::string_view body) {
    return kora::readSoapReply(body, Operation::kResponseElement,
                               [](xmlNodePtr element) -> std::shared_ptr<const kora::KoraRecord> {
                                   return std::make_shared<typename Operation::Response>(
                                       Operation::Response::deserializeNode(element));
                               });
}

// Touches every field so that a record read wrongly shows up under the sanitizers.
std::size_t weigh(const kora::KoraRecord& record) {
    std::size_t weight = 0;
    for (const kora::FieldView& field : record.fieldValues()) {
        if (const auto* text = std::get_if<const std::string*>(&field.value))
            weight += (*text)->size();
        if (const auto* nested = std::get_if<const kora::KoraRecord*>(&field.value)) {
            weight += weigh(**nested);
        }
    }
    return weight;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::string_view body(reinterpret_cast<const char*>(data) + 1, size - 1);
    kora::SoapReply reply;
    switch (data[0] % 4) {
        case 0:
            reply = readAs<kora::CheckOperation>(body);
            break;
        case 1:
            reply = readAs<kora::DownloadErrorOperation>(body);
            break;
        case 2:
            reply = readAs<kora::InstallErrorOperation>(body);
            break;
        default:
            reply = readAs<kora::UninstallOperation>(body);
            break;
    }
    if (!reply.bodyParts) return 0;
    volatile std::size_t weight = 0;
    for (const kora::BodyPart& part : *reply.bodyParts) {
        if (const auto* record = std::get_if<std::shared_ptr<const kora::KoraRecord>>(&part)) {
            weight = weight + weigh(**record);
        } else if (const auto* fault = kora::bodyPartAs<kora::SOAPFault>(part)) {
            weight = weight + fault->simpleFaultString().value_or("").size();
        }
    }
    return 0;
}
