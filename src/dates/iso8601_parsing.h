#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/date.h"

namespace kora {

// The parser's default separator between hours, minutes and seconds.
inline constexpr char16_t ISO8601ParserDefaultTimeSeparatorCharacter = u':';

// Where in the input's UTF-8 bytes a parsed date stood.
struct ISO8601Range {
    std::uint32_t location;
    std::uint32_t length;
    bool operator==(const ISO8601Range&) const = default;
};
inline constexpr ISO8601Range kISO8601NotFound{2147483647u, 0};

// The full reader; every other overload ends here. Lenient unless `strictly`.
std::optional<Date> dateWithString(std::string_view text, bool strictly, char16_t timeSeparator,
                                   ISO8601Range* range);

std::optional<Date> dateWithString(std::string_view text);
std::optional<Date> dateWithString(std::string_view text, bool strictly);
std::optional<Date> dateWithString(std::string_view text, bool strictly, ISO8601Range* range);
std::optional<Date> dateWithString(std::string_view text, char16_t timeSeparator,
                                   ISO8601Range* range);
std::optional<Date> dateWithString(std::string_view text, char16_t timeSeparator);
std::optional<Date> dateWithString(std::string_view text, ISO8601Range* range);

}  // namespace kora
