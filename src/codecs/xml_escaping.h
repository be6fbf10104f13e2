#pragma once

#include <string>
#include <string_view>

namespace kora {

// The five predefined XML entities, escaped and unescaped as whole-string
// replacements. Numeric character references are neither produced nor read.
std::string stringByEscapingXML(std::string_view text);
std::string stringByUnescapingXML(std::string_view text);

// The escaped copy in the UTF-8 form that libxml2 takes for element names and
// element content (its xmlChar strings are NUL-terminated UTF-8 bytes).
std::string xmlString(std::string_view text);

}  // namespace kora
