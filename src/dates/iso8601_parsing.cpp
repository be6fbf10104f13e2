#include "dates/iso8601_parsing.h"

#include <chrono>
#include <cmath>
#include <cstddef>
#include <ctime>
#include <limits>
#include <stdexcept>
#include <string>

#include "platform/logging.h"
#include "dates/iso8601_support.h"

namespace kora {
namespace {

using iso8601::isLeapYear;
using iso8601::weekdayOfFirstJanuary;

constexpr std::size_t kAnyLength = std::numeric_limits<std::size_t>::max();

// A day count this far past the year's start lies beyond every year a Date can
// hold, whatever the year; refusing it early keeps each calendar field in an int.
constexpr std::int64_t kMaxDayCount = 4'000'000;

// Minute and second texts may be arbitrarily long; past this they are far
// outside a Date's range anyway, and the cap keeps the arithmetic defined.
constexpr double kMaxTimeUnits = 1e15;

enum class DateKind { Calendar, Week, Ordinal };

struct CalendarDay {
    unsigned year;
    unsigned month;
    unsigned day;
};

// Everything one call has read. `monthOrWeek` and `day` mean month and day,
// week and weekday, or (day only) day of the year, after `kind`.
struct DateFields {
    unsigned year = 0;
    unsigned monthOrWeek = 1;
    unsigned day = 1;
    unsigned hour = 0;
    double minute = 0;
    double second = 0;
    DateKind kind = DateKind::Calendar;
    std::optional<int> zoneOffset;  // seconds east of UTC, when the text named a zone
};

bool isSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}
bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

CalendarDay today() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    return {static_cast<unsigned>(local.tm_year + 1900), static_cast<unsigned>(local.tm_mon + 1),
            static_cast<unsigned>(local.tm_mday)};
}

std::int64_t wholeUnits(double value) {
    return static_cast<std::int64_t>(value < kMaxTimeUnits ? value : kMaxTimeUnits);
}

// Day of the year of a week date; 0 or less is a day of the previous year.
std::int64_t dayOfYearForWeek(std::int64_t year, std::int64_t week, std::int64_t weekday) {
    const std::int64_t firstWeekday = weekdayOfFirstJanuary(year);
    return (week - 2) * 7 + weekday + (7 - firstWeekday) + (firstWeekday > 3 ? 7 : 0);
}

std::optional<Date> representable(std::time_t seconds) {
    constexpr auto kLimit =
        std::chrono::duration_cast<std::chrono::seconds>(Date::duration::max()).count() - 1;
    if (seconds > kLimit || seconds < -kLimit) return std::nullopt;
    return dateFromUnixSeconds(seconds);
}

// Week and ordinal dates become day `n` of January, which the C library rolls
// into the right month just as it rolls month 13 into the next January.
std::optional<Date> dateFromFields(const DateFields& fields) {
    std::int64_t month = fields.monthOrWeek;
    std::int64_t day = fields.day;
    if (fields.kind == DateKind::Week) {
        day = dayOfYearForWeek(fields.year, fields.monthOrWeek, fields.day);
        month = 1;
    } else if (fields.kind == DateKind::Ordinal) {
        month = 1;
    }
    // Carrying whole days here keeps every field handed to the C library within an
    // int; the library would carry them the same way.
    std::int64_t secondOfDay =
        fields.hour * 3600 + wholeUnits(fields.minute) * 60 + wholeUnits(fields.second);
    day += secondOfDay / 86400;
    secondOfDay %= 86400;
    if (day > kMaxDayCount) return std::nullopt;

    std::tm civil{};
    civil.tm_year = static_cast<int>(fields.year) - 1900;
    civil.tm_mon = static_cast<int>(month) - 1;
    civil.tm_mday = static_cast<int>(day);
    civil.tm_hour = static_cast<int>(secondOfDay / 3600);
    civil.tm_min = static_cast<int>(secondOfDay / 60 % 60);
    civil.tm_sec = static_cast<int>(secondOfDay % 60);
    if (fields.zoneOffset) return representable(timegm(&civil) - *fields.zoneOffset);
    civil.tm_isdst = -1;
    return representable(std::mktime(&civil));
}

// One call's walk over the input's bytes. Each read* function consumes what it
// recognises and reports whether the text is still a date.
class ISO8601Reader {
  public:
    ISO8601Reader(std::string_view text, bool strict, char16_t separator)
        : text_(text),
          strict_(strict),
          separatorCharacter_(separator),
          separator_(iso8601::utf8Character(separator)),
          today_(today()) {
        fields_.year = today_.year;
        fields_.monthOrWeek = today_.month;
        fields_.day = today_.day;
    }

    std::optional<Date> read(ISO8601Range* range) {
        const std::optional<Date> date = parse();
        if (range) {
            *range = date ? ISO8601Range{static_cast<std::uint32_t>(start_),
                                         static_cast<std::uint32_t>(position_ - start_)}
                          : kISO8601NotFound;
        }
        return date;
    }

  private:
    std::optional<Date> parse() {
        if (text_.empty()) return std::nullopt;
        if (isSpace(peek())) {
            if (strict_) return std::nullopt;
            while (isSpace(peek())) ++position_;
        }
        start_ = position_;
        if (!readDatePart() || !withinStrictBounds()) return std::nullopt;
        readTimeOfDay();
        return dateFromFields(fields_);
    }

    // --- cursor ---

    char peek(std::size_t ahead = 0) const {
        return position_ + ahead < text_.size() ? text_[position_ + ahead] : '\0';
    }
    bool digitAhead(std::size_t ahead = 0) const { return isDigit(peek(ahead)); }

    bool skip(char c) {
        if (peek() != c || position_ >= text_.size()) return false;
        ++position_;
        return true;
    }

    bool skipSeparator() {
        if (!text_.substr(position_).starts_with(separator_)) return false;
        position_ += separator_.size();
        return true;
    }

    // Reads up to `maxCount` digits; the value wraps like any unsigned count.
    unsigned readDigits(std::size_t maxCount, std::size_t* count = nullptr) {
        unsigned value = 0;
        std::size_t read = 0;
        while (read < maxCount && digitAhead()) {
            value = value * 10 + static_cast<unsigned>(text_[position_++] - '0');
            ++read;
        }
        if (count) *count = read;
        return value;
    }

    // Digits, then optionally "," or "." and fraction digits.
    double readDecimal() {
        double value = 0;
        while (digitAhead()) value = value * 10 + (text_[position_++] - '0');
        if ((peek() == ',' || peek() == '.') && digitAhead(1)) {
            ++position_;
            for (double scale = 0.1; digitAhead(); scale /= 10) {
                value += (text_[position_++] - '0') * scale;
            }
        }
        return value;
    }

    std::string_view rest() const { return text_.substr(position_); }

    unsigned century() const { return today_.year - today_.year % 100; }
    unsigned decade() const { return today_.year - today_.year % 10; }

    // --- results ---

    bool setCalendar(unsigned year, unsigned month, unsigned day) {
        fields_.year = year;
        fields_.monthOrWeek = month;
        fields_.day = day;
        fields_.kind = DateKind::Calendar;
        return true;
    }

    bool setOrdinal(unsigned year, unsigned dayOfYear) {
        setCalendar(year, 1, dayOfYear);
        fields_.kind = DateKind::Ordinal;
        return true;
    }

    bool setWeek(unsigned year, unsigned week, unsigned weekday) {
        setCalendar(year, week, weekday);
        fields_.kind = DateKind::Week;
        return true;
    }

    bool withinStrictBounds() const {
        if (!strict_ || fields_.kind != DateKind::Ordinal) return true;
        return fields_.day <= (isLeapYear(fields_.year) ? 366u : 365u);
    }

    // --- date part ---

    bool readDatePart() {
        // A time with no date: today, provided an hour follows.
        if (peek() == 'T') return digitAhead(1);
        std::size_t hyphens = 0;
        while (skip('-')) ++hyphens;
        std::size_t digits = 0;
        const unsigned value = readDigits(kAnyLength, &digits);
        switch (digits) {
            case 8:
            case 7:
            case 6:
                return hyphens == 0 && readCompactDate(digits, value);
            case 4:
                return readFourDigitShape(hyphens, value);
            case 3:
                return (hyphens == 1 || hyphens == 2) && setOrdinal(today_.year, value);
            case 2:
                return readTwoDigitShape(hyphens, digits, value);
            case 1:
                return !strict_ && readTwoDigitShape(hyphens, digits, value);
            case 0:
                return readWeekOfThisYear(hyphens);
            default:
                return false;
        }
    }

    // YYYYMMDD, YYYYDDD, YYMMDD.
    bool readCompactDate(std::size_t digits, unsigned value) {
        if (digits == 8) return setCalendar(value / 10000, value / 100 % 100, value % 100);
        if (digits == 7) return setOrdinal(value / 1000, value % 1000);
        return setCalendar(century() + value / 10000, value / 100 % 100, value % 100);
    }

    // YYYY..., -YYMM[-D...], --MMDD.
    bool readFourDigitShape(std::size_t hyphens, unsigned value) {
        switch (hyphens) {
            case 0:
                return readAfterFullYear(value);
            case 1:
                return setCalendar(value / 100, value % 100, readOptionalDay(kAnyLength));
            case 2:
                return setCalendar(today_.year, value / 100, value % 100);
            default:
                return false;
        }
    }

    bool readAfterFullYear(unsigned year) {
        skip('-');
        if (skip('W')) return readWeekDate(year);
        if (!digitAhead()) return setCalendar(year, 1, 1);
        std::size_t digits = 0;
        const unsigned value = readDigits(kAnyLength, &digits);
        switch (digits) {
            case 2:
                return setCalendar(year, value, readOptionalDay(kAnyLength));
            case 3:
                return setOrdinal(year, value);
            case 4:
                return setCalendar(year, value / 100, value % 100);
            default:
                return false;
        }
    }

    // An optional "-" and a day; no digits mean the first.
    unsigned readOptionalDay(std::size_t maxDigits) {
        skip('-');
        return digitAhead() ? readDigits(maxDigits) : 1;
    }

    // YY..., -YY[-MM], --MM[-DD], ---DD (one digit in place of two when lenient).
    bool readTwoDigitShape(std::size_t hyphens, std::size_t digits, unsigned value) {
        switch (hyphens) {
            case 0:
                return readAfterShortYear(value);
            case 1:
                return readHyphenYear(digits, value);
            case 2:
                return setCalendar(today_.year, value, readOptionalDay(2));
            case 3:
                return setCalendar(today_.year, today_.month, value);
            default:
                return false;
        }
    }

    bool readAfterShortYear(unsigned value) {
        const unsigned year = century() + value;
        if (skip('W')) return readWeekDate(year);
        if (skip('-')) {
            if (skip('W')) return readWeekDate(year);
            if (digitAhead()) return readShortYearRest(year);
        }
        // A lone two-digit number is taken as a century.
        return setCalendar(value * 100 + today_.year % 100, 1, 1);
    }

    // After "YY-": MM[-DD] (M when lenient), DDD or MMDD.
    bool readShortYearRest(unsigned year) {
        std::size_t digits = 0;
        const unsigned value = readDigits(4, &digits);
        if (digits == 3) return setOrdinal(year, value);
        if (digits == 4) return setCalendar(year, value / 100, value % 100);
        if (digits == 1 && strict_) return false;
        logDiagnostic("(%s) parsing month; segment is %u and ch is %s", loggable(text_).c_str(),
                      value, loggable(rest()).c_str());
        return setCalendar(year, value, readOptionalDay(2));
    }

    bool readHyphenYear(std::size_t digits, unsigned value) {
        logDiagnostic(
            "(%s) found %u digits and one hyphen, so this is either -YY or -YY-MM; segment "
            "(year) is %u",
            loggable(text_).c_str(), static_cast<unsigned>(digits), value);
        const unsigned year = (digits == 1 ? decade() : century()) + value;
        unsigned month = 1;
        if (peek() == '-' && digitAhead(1)) {
            skip('-');
            month = readDigits(2);
            logDiagnostic("(%s) month is %u", loggable(text_).c_str(), month);
        }
        return setCalendar(year, month, 1);
    }

    // -W..., -W-D and (lenient) --W-D in the current year.
    bool readWeekOfThisYear(std::size_t hyphens) {
        if ((hyphens != 1 && hyphens != 2) || !skip('W')) return false;
        if (peek() == '-' && digitAhead(1)) {
            if (hyphens == 2 && strict_) return false;
            skip('-');
            return setWeek(today_.year, 1, readDigits(1));
        }
        return hyphens == 1 && readWeekDate(today_.year);
    }

    // After "W": week, optional "-", weekday.
    bool readWeekDate(unsigned year) {
        std::size_t digits = 0;
        const unsigned week = readDigits(2, &digits);
        if (digits == 0) return !strict_ && setCalendar(year, 1, 1);
        skip('-');
        const unsigned weekday = digitAhead() ? readDigits(2) : 1;
        return setWeek(year, week, weekday);
    }

    // --- time of day and zone ---

    void readTimeOfDay() {
        const std::size_t beforeTime = position_;
        if (isSpace(peek()) || peek() == 'T') ++position_;
        if (!digitAhead()) {
            position_ = beforeTime;  // the skipped character was not part of a time
            return;
        }
        fields_.hour = readDigits(2);
        if (skipSeparator()) readMinutesAndSeconds();
        readZone();
    }

    void readMinutesAndSeconds() {
        // With "," or "." as separator, a decimal fraction cannot be told apart.
        if (separatorCharacter_ == u',' || separatorCharacter_ == u'.') {
            fields_.minute = readDigits(2);
            if (skipSeparator()) fields_.second = readDigits(2);
            return;
        }
        const double minute = readDecimal();
        double wholeMinutes = 0;
        const double fraction = std::modf(minute, &wholeMinutes);
        if (fraction > std::numeric_limits<double>::epsilon()) {
            fields_.minute = wholeMinutes;
            fields_.second = fraction * 60;
            return;
        }
        fields_.minute = minute;
        if (skipSeparator()) fields_.second = readDecimal();
    }

    // Only directly after the time: the stored text's " +0200" is not a zone.
    void readZone() {
        if (skip('Z')) {
            fields_.zoneOffset = 0;
            return;
        }
        const char sign = peek();
        if ((sign != '+' && sign != '-') || !digitAhead(1)) return;
        ++position_;
        const int hours = static_cast<int>(readDigits(2));
        skipSeparator();
        const int minutes = digitAhead() ? static_cast<int>(readDigits(2)) : 0;
        fields_.zoneOffset = (sign == '-' ? -1 : 1) * (hours * 3600 + minutes * 60);
    }

    std::string_view text_;
    bool strict_;
    char16_t separatorCharacter_;
    std::string separator_;
    CalendarDay today_;
    DateFields fields_;
    std::size_t position_ = 0;
    std::size_t start_ = 0;
};

}  // namespace

std::optional<Date> dateWithString(std::string_view text, bool strictly, char16_t timeSeparator,
                                   ISO8601Range* range) {
    if (strictly) timeSeparator = ISO8601ParserDefaultTimeSeparatorCharacter;
    if (timeSeparator == u'\0') throw std::invalid_argument("Time separator must not be NUL.");
    return ISO8601Reader(text, strictly, timeSeparator).read(range);
}

std::optional<Date> dateWithString(std::string_view text) {
    return dateWithString(text, false, ISO8601ParserDefaultTimeSeparatorCharacter, nullptr);
}

std::optional<Date> dateWithString(std::string_view text, bool strictly) {
    return dateWithString(text, strictly, ISO8601ParserDefaultTimeSeparatorCharacter, nullptr);
}

std::optional<Date> dateWithString(std::string_view text, bool strictly, ISO8601Range* range) {
    return dateWithString(text, strictly, ISO8601ParserDefaultTimeSeparatorCharacter, range);
}

std::optional<Date> dateWithString(std::string_view text, char16_t timeSeparator,
                                   ISO8601Range* range) {
    return dateWithString(text, false, timeSeparator, range);
}

std::optional<Date> dateWithString(std::string_view text, char16_t timeSeparator) {
    return dateWithString(text, false, timeSeparator, nullptr);
}

std::optional<Date> dateWithString(std::string_view text, ISO8601Range* range) {
    return dateWithString(text, false, ISO8601ParserDefaultTimeSeparatorCharacter, range);
}

}  // namespace kora
