#pragma once

#include <string>

#include "platform/http_exchange.h"

namespace kora {

// Header fields as the XML traces print them, one quoted pair per line:
//   {
//       "User-Agent" = "Tarvo/0.2 OSX";
//   }
inline std::string headerDescription(const HttpHeaders& headers) {
    std::string text = "{\n";
    for (const auto& [name, value] : headers) {
        text += "    \"" + name + "\" = \"" + value + "\";\n";
    }
    return text + "}";
}

}  // namespace kora
