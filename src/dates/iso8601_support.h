#pragma once

// Calendar and character helpers shared by the ISO 8601 reader and formatters.

#include <cstdint>
#include <string>

namespace kora::iso8601 {

// Gregorian leap years: divisible by 4, and by 400 when divisible by 100.
inline bool isLeapYear(std::int64_t year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

// The weekday of 1 January of `year`, Monday = 0, by the century-and-year rule
// that the week-date reader and the week formatter both rely on.
inline std::int64_t weekdayOfFirstJanuary(std::int64_t year) {
    const std::int64_t previous = year - 1;
    const std::int64_t yearOfCentury = previous % 100;
    const std::int64_t century = (previous - yearOfCentury) / 100;
    return ((century % 4) * 5 + yearOfCentury + yearOfCentury / 4) % 7;
}

// A 16-bit separator character as it appears in UTF-8 text.
inline std::string utf8Character(char16_t character) {
    std::string bytes;
    if (character < 0x80) {
        bytes += static_cast<char>(character);
    } else if (character < 0x800) {
        bytes += static_cast<char>(0xC0 | (character >> 6));
        bytes += static_cast<char>(0x80 | (character & 0x3F));
    } else {
        bytes += static_cast<char>(0xE0 | (character >> 12));
        bytes += static_cast<char>(0x80 | ((character >> 6) & 0x3F));
        bytes += static_cast<char>(0x80 | (character & 0x3F));
    }
    return bytes;
}

}  // namespace kora::iso8601
