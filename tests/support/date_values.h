#pragma once

// Expected dates for tests, computed with the C library so that they hold in
// whatever zone the tests run (UTC and Europe/Helsinki under CTest).

#include <ctime>
#include <optional>
#include <string>

#include "platform/date.h"

namespace kora::test {

inline std::tm civil(int year, int month, int day, int hour, int minute, int second) {
    std::tm fields{};
    fields.tm_year = year - 1900;
    fields.tm_mon = month - 1;
    fields.tm_mday = day;
    fields.tm_hour = hour;
    fields.tm_min = minute;
    fields.tm_sec = second;
    fields.tm_isdst = -1;
    return fields;
}

// Wall-clock time in the process's local zone; fields roll over like mktime's.
inline Date localDate(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
    std::tm fields = civil(year, month, day, hour, minute, second);
    return dateFromUnixSeconds(std::mktime(&fields));
}

inline Date utcDate(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
    std::tm fields = civil(year, month, day, hour, minute, second);
    return dateFromUnixSeconds(timegm(&fields));
}

inline std::tm localFields(std::time_t seconds) {
    std::tm fields{};
    localtime_r(&seconds, &fields);
    return fields;
}

// The UTC time, "+frac" when it has a fraction of a second, or "none".
inline std::string show(std::optional<Date> date) {
    if (!date) return "none";
    const std::time_t seconds = static_cast<std::time_t>(unixSeconds(*date));
    std::tm fields{};
    gmtime_r(&seconds, &fields);
    char text[64];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &fields);
    const bool whole = date->time_since_epoch() % std::chrono::seconds{1} == Date::duration{};
    return whole ? text : text + std::string(" +frac");
}

}  // namespace kora::test
