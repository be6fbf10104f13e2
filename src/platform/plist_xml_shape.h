#pragma once

#include <string_view>

#include "platform/plist_guard.h"

namespace kora {

// The shape of an XML property list, read as an XML parser tokenises it.
PlistShape xmlPlistShape(std::string_view text);

}  // namespace kora
