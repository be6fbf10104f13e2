#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "platform/property_list.h"

namespace kora {

// Reads a property list that an executable carries in a section of its "__TEXT"
// segment, as a daemon carries its job description in "__launchd_plist".
//
// Understood files: thin 32-bit and 64-bit Mach-O images in host byte order,
// universal (fat) files whose slices are tried in table order, and ELF 32/64 in
// host byte order, where segment and section are one section named
// "SEGMENT,SECTION" (for example "__TEXT,__launchd_plist").
//
// The reader keeps no state and logs nothing. It trusts no header: nothing is
// read past the end of the file, and a crafted file cannot make it loop long.
class TqPlistExtractor {
  public:
    TqPlistExtractor() = delete;

    // The property list stored in section `sectionName` of the "__TEXT" segment
    // of the file, or no value when the file cannot be read, the section is not
    // there, or its bytes are not a property list.
    static std::optional<PlistValue> TqExtractPlist(const std::filesystem::path& file,
                                                    std::string_view sectionName);
    static std::optional<PlistValue> TqExtractPlist(std::span<const std::uint8_t> file,
                                                    std::string_view sectionName);

    // A copy of the named section's bytes (in a universal file, from the first
    // slice that has the section), or no value. The copy outlives the mapping.
    static std::optional<std::vector<std::uint8_t>> TqMachOSection(
        const std::filesystem::path& file, std::string_view segmentName,
        std::string_view sectionName);
    static std::optional<std::vector<std::uint8_t>> TqMachOSection(
        std::span<const std::uint8_t> file, std::string_view segmentName,
        std::string_view sectionName);
};

}  // namespace kora
