// Property lists come from application bundles, preference files and update
// archives: any bytes must give a value or none, never a crash or a hang.
#include <cstddef>
#include <cstdint>

#include "platform/property_list.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::optional<kora::PlistValue> value = kora::parsePropertyList({data, size});
    if (value) (void)kora::propertyListXml(*value);
    return 0;
}
