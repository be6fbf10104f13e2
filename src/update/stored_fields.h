#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/property_list.h"

namespace kora {

// Helpers for the records kept in property-list files (registry entries,
// update dictionaries, preference files).

// A stored flag: a boolean, or a number read as its truth value; false when
// missing or of another type.
inline bool storedFlag(const PlistDictionary& dictionary, std::string_view key) {
    const PlistValue* value = dictionary.find(key);
    if (!value) return false;
    if (const bool* flag = value->as<bool>()) return *flag;
    if (const std::int64_t* number = value->as<std::int64_t>()) return *number != 0;
    return false;
}

// An absent field produces no key.
inline void storeString(PlistDictionary& dictionary, std::string key,
                        const std::optional<std::string>& value) {
    if (value) dictionary.set(std::move(key), PlistValue(*value));
}

}  // namespace kora
