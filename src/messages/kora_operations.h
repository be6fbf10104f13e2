#pragma once

#include <string_view>

#include "messages/kora_messages.h"

namespace kora {

// The eight operations of the update service: the request record, sent as the
// body element named after the operation, and the response record the reply
// carries in the element "<operation>Response".
#define KORA_OPERATION(Name)                                                   \
    struct Name##Operation {                                                   \
        using Request = KORA_##Name;                                           \
        using Response = KORA_##Name##Response;                                \
        static constexpr std::string_view kName = #Name;                       \
        static constexpr std::string_view kResponseElement = #Name "Response"; \
    };

KORA_OPERATION(Check)
KORA_OPERATION(DownloadError)
KORA_OPERATION(InstallError)
KORA_OPERATION(DownloadComplete)
KORA_OPERATION(InstallComplete)
KORA_OPERATION(DownloadCancel)
KORA_OPERATION(InstallCancel)
KORA_OPERATION(Uninstall)

#undef KORA_OPERATION

}  // namespace kora
