#include "dates/iso8601_unparsing.h"

#include <cstdint>
#include <ctime>
#include <optional>

#include "platform/logging.h"
#include "dates/iso8601_support.h"

namespace kora {
namespace {

using iso8601::isLeapYear;
using iso8601::weekdayOfFirstJanuary;

constexpr std::string_view kDateTimePattern = "yyyy-MM-dd'T'HH:mm:ss";
constexpr std::string_view kDatePattern = "yyyy-MM-dd";
constexpr std::string_view kTimePattern = "'T'HH:mm:ss'Z'";

std::tm utcFields(Date date) {
    const std::time_t seconds = static_cast<std::time_t>(unixSeconds(date));
    std::tm fields{};
    gmtime_r(&seconds, &fields);
    return fields;
}

std::optional<int> fieldForLetter(const std::tm& fields, char letter) {
    switch (letter) {
        case 'y':
            return fields.tm_year + 1900;
        case 'M':
            return fields.tm_mon + 1;
        case 'd':
            return fields.tm_mday;
        case 'H':
            return fields.tm_hour;
        case 'm':
            return fields.tm_min;
        case 's':
            return fields.tm_sec;
        default:
            return std::nullopt;
    }
}

// Copies quoted text starting at the quote at `index`; "''" is a quote
// character. Returns the index after the closing quote.
std::size_t appendQuoted(std::string_view pattern, std::size_t index, std::string& out) {
    ++index;
    if (index < pattern.size() && pattern[index] == '\'') {
        out += '\'';
        return index + 1;
    }
    while (index < pattern.size()) {
        if (pattern[index] != '\'') {
            out += pattern[index++];
        } else if (index + 1 < pattern.size() && pattern[index + 1] == '\'') {
            out += '\'';
            index += 2;
        } else {
            return index + 1;
        }
    }
    return index;
}

// The pattern letters y, M, d, H, m and s stand for their field, zero-padded to
// the length of the run of letters; quoted text and other characters stand for
// themselves.
std::string formatWithPattern(const std::tm& fields, std::string_view pattern) {
    std::string out;
    std::size_t index = 0;
    while (index < pattern.size()) {
        const char letter = pattern[index];
        if (letter == '\'') {
            index = appendQuoted(pattern, index, out);
            continue;
        }
        std::size_t end = index;
        while (end < pattern.size() && pattern[end] == letter) ++end;
        const int width = static_cast<int>(end - index);
        if (const auto value = fieldForLetter(fields, letter)) {
            out += stringWithFormat("%0*d", width, *value);
        } else {
            out.append(pattern.substr(index, end - index));
        }
        index = end;
    }
    return out;
}

std::string timePart(Date date, bool includeTime, char16_t timeSeparator) {
    if (!includeTime) return {};
    return formatWithPattern(utcFields(date),
                             prepareDateFormatWithTimeSeparator(kTimePattern, timeSeparator));
}

unsigned weeksInYear(std::int64_t year) {
    const std::int64_t firstWeekday = weekdayOfFirstJanuary(year);
    return firstWeekday == 3 || (firstWeekday == 2 && isLeapYear(year)) ? 53 : 52;
}

struct WeekDate {
    std::int64_t year;
    unsigned week;
    unsigned weekday;  // Monday = 1
};

// Week 1 is the week holding the year's first Thursday, so the first days of
// January may belong to the previous year and the last of December to the next.
WeekDate weekDateOf(const std::tm& fields) {
    const std::int64_t year = fields.tm_year + 1900;
    const unsigned weekday = static_cast<unsigned>((fields.tm_wday + 6) % 7 + 1);
    const std::int64_t firstWeekday = weekdayOfFirstJanuary(year);
    const std::int64_t weeksSinceFirstMonday = (fields.tm_yday + firstWeekday) / 7;
    const std::int64_t week = weeksSinceFirstMonday + (firstWeekday <= 3 ? 1 : 0);
    if (week == 0) return {year - 1, weeksInYear(year - 1), weekday};
    if (week > weeksInYear(year)) return {year + 1, 1, weekday};
    return {year, static_cast<unsigned>(week), weekday};
}

}  // namespace

std::string prepareDateFormatWithTimeSeparator(std::string_view pattern, char16_t separator) {
    std::string prepared(pattern);
    if (separator == u':') return prepared;
    const std::string replacement = iso8601::utf8Character(separator);
    for (std::size_t at = prepared.find(':'); at != std::string::npos;
         at = prepared.find(':', at + replacement.size())) {
        prepared.replace(at, 1, replacement);
    }
    return prepared;
}

std::string ISO8601DateStringWithTime(Date date, bool includeTime, char16_t timeSeparator) {
    const std::string pattern = prepareDateFormatWithTimeSeparator(
        includeTime ? kDateTimePattern : kDatePattern, timeSeparator);
    std::string text = formatWithPattern(utcFields(date), pattern);
    if (includeTime) text += 'Z';
    return text;
}

std::string ISO8601DateStringWithTime(Date date, bool includeTime) {
    return ISO8601DateStringWithTime(date, includeTime,
                                     ISO8601UnparserDefaultTimeSeparatorCharacter);
}

std::string ISO8601DateStringWithTimeSeparator(Date date, char16_t timeSeparator) {
    return ISO8601DateStringWithTime(date, true, timeSeparator);
}

std::string ISO8601DateString(Date date) {
    return ISO8601DateStringWithTime(date, true, ISO8601UnparserDefaultTimeSeparatorCharacter);
}

std::string ISO8601WeekDateStringWithTime(Date date, bool includeTime, char16_t timeSeparator) {
    const WeekDate weekDate = weekDateOf(utcFields(date));
    return stringWithFormat("%lld-W%02u-%02u", static_cast<long long>(weekDate.year), weekDate.week,
                            weekDate.weekday) +
           timePart(date, includeTime, timeSeparator);
}

std::string ISO8601WeekDateStringWithTime(Date date, bool includeTime) {
    return ISO8601WeekDateStringWithTime(date, includeTime,
                                         ISO8601UnparserDefaultTimeSeparatorCharacter);
}

std::string ISO8601WeekDateStringWithTimeSeparator(Date date, char16_t timeSeparator) {
    return ISO8601WeekDateStringWithTime(date, true, timeSeparator);
}

std::string ISO8601WeekDateString(Date date) {
    return ISO8601WeekDateStringWithTime(date, true, ISO8601UnparserDefaultTimeSeparatorCharacter);
}

std::string ISO8601OrdinalDateStringWithTime(Date date, bool includeTime, char16_t timeSeparator) {
    const std::tm fields = utcFields(date);
    return stringWithFormat("%d-%03d", fields.tm_year + 1900, fields.tm_yday + 1) +
           timePart(date, includeTime, timeSeparator);
}

std::string ISO8601OrdinalDateStringWithTime(Date date, bool includeTime) {
    return ISO8601OrdinalDateStringWithTime(date, includeTime,
                                            ISO8601UnparserDefaultTimeSeparatorCharacter);
}

std::string ISO8601OrdinalDateStringWithTimeSeparator(Date date, char16_t timeSeparator) {
    return ISO8601OrdinalDateStringWithTime(date, true, timeSeparator);
}

std::string ISO8601OrdinalDateString(Date date) {
    return ISO8601OrdinalDateStringWithTime(date, true,
                                            ISO8601UnparserDefaultTimeSeparatorCharacter);
}

}  // namespace kora
