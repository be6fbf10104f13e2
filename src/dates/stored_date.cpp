#include "dates/stored_date.h"

#include <ctime>

#include "dates/iso8601_parsing.h"

namespace kora {
namespace {

std::tm localFields(std::time_t seconds) {
    std::tm local{};
    localtime_r(&seconds, &local);
    return local;
}

bool sameWallClock(const std::tm& a, const std::tm& b) {
    return a.tm_year == b.tm_year && a.tm_mon == b.tm_mon && a.tm_mday == b.tm_mday &&
           a.tm_hour == b.tm_hour && a.tm_min == b.tm_min && a.tm_sec == b.tm_sec;
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// The "+HHMM" that ends a stored text, in seconds east of UTC.
std::optional<long> writtenOffset(std::string_view text) {
    if (text.size() < 5) return std::nullopt;
    const std::string_view tail = text.substr(text.size() - 5);
    if (tail[0] != '+' && tail[0] != '-') return std::nullopt;
    for (const char c : tail.substr(1)) {
        if (!isDigit(c)) return std::nullopt;
    }
    const long minutes =
        ((tail[1] - '0') * 10 + (tail[2] - '0')) * 60 + (tail[3] - '0') * 10 + (tail[4] - '0');
    return (tail[0] == '-' ? -60 : 60) * minutes;
}

}  // namespace

std::string storedDateText(Date date) {
    const std::tm local = localFields(static_cast<std::time_t>(unixSeconds(date)));
    char text[64];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S %z", &local);
    return text;
}

std::optional<Date> dateFromStoredText(std::string_view text) {
    const std::optional<Date> date = dateWithString(text);
    const std::optional<long> offset = writtenOffset(text);
    if (!date || !offset) return date;
    // When the clocks go back, an hour of wall-clock times happens twice. Both
    // readings are the text's local time; the written offset picks the one it
    // was written for, which keeps the round trip exact.
    const std::time_t seconds = static_cast<std::time_t>(unixSeconds(*date));
    const std::tm read = localFields(seconds);
    const std::time_t other = seconds + read.tm_gmtoff - *offset;
    if (other == seconds) return date;
    const std::tm otherFields = localFields(other);
    if (otherFields.tm_gmtoff == *offset && sameWallClock(read, otherFields)) {
        return dateFromUnixSeconds(other);
    }
    return date;
}

}  // namespace kora
