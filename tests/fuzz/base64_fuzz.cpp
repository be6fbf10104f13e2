#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "codecs/base64.h"

// Whatever decodes must survive encoding and decoding again unchanged.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto decoded =
        kora::dataWithBase64EncodedString(std::string(reinterpret_cast<const char*>(data), size));
    if (!decoded) return 0;
    const auto again = kora::dataWithBase64EncodedString(kora::base64Encoding(*decoded));
    if (again != decoded) std::abort();
    return 0;
}
