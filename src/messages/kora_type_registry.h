#pragma once

#include <libxml/tree.h>

#include <string_view>

#include "messages/kora_record.h"

namespace kora {

// A type's reader (its deserializeNode) in the form the registry keeps.
using TypeReader = MessageValue (*)(xmlNodePtr element);

// The types an xsi:type attribute may name: the eighteen records under their
// xsi:type texts (kXsiType), "SOAPFault", and the value types "NSString", "NSNumber",
// "NSDate", "NSData" and "USBoolean". Null for any other name.
TypeReader typeReaderNamed(std::string_view typeName);

}  // namespace kora
