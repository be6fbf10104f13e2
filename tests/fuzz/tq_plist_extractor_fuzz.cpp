#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "update/tq_plist_extractor.h"

// Executable headers of any shape: a section found is always a piece of the input,
// and its property list, if any, is read from that piece alone.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span<const std::uint8_t> file(data, size);
    const auto section = kora::TqPlistExtractor::TqMachOSection(file, "__TEXT", "__launchd_plist");
    if (section &&
        std::search(file.begin(), file.end(), section->begin(), section->end()) == file.end()) {
        std::abort();
    }
    const auto plist = kora::TqPlistExtractor::TqExtractPlist(file, "__launchd_plist");
    if (plist.has_value() != (section && kora::parsePropertyList(*section).has_value())) {
        std::abort();
    }
    return 0;
}
