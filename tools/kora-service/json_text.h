#pragma once

#include <string>
#include <string_view>

namespace kora::service {

// Appends `text` as a JSON string, quotes included. Control characters and
// bytes that are not UTF-8 are escaped, so any text gives valid JSON.
void appendJsonString(std::string& out, std::string_view text);

}  // namespace kora::service
