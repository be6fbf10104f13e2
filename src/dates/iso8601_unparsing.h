#pragma once

#include <string>

#include "platform/date.h"

namespace kora {

inline constexpr char16_t ISO8601UnparserDefaultTimeSeparatorCharacter = u':';

// The date pattern with every ':' replaced by the separator.
std::string prepareDateFormatWithTimeSeparator(std::string_view pattern, char16_t separator);

// Calendar form in UTC: "2011-03-07T14:05:09Z", or "2011-03-07" without time.
std::string ISO8601DateStringWithTime(Date date, bool includeTime, char16_t timeSeparator);
std::string ISO8601DateStringWithTime(Date date, bool includeTime);
std::string ISO8601DateStringWithTimeSeparator(Date date, char16_t timeSeparator);
std::string ISO8601DateString(Date date);

// Week form: "2008-W01-01T...Z".
std::string ISO8601WeekDateStringWithTime(Date date, bool includeTime, char16_t timeSeparator);
std::string ISO8601WeekDateStringWithTime(Date date, bool includeTime);
std::string ISO8601WeekDateStringWithTimeSeparator(Date date, char16_t timeSeparator);
std::string ISO8601WeekDateString(Date date);

// Ordinal form: "2011-066T...Z".
std::string ISO8601OrdinalDateStringWithTime(Date date, bool includeTime, char16_t timeSeparator);
std::string ISO8601OrdinalDateStringWithTime(Date date, bool includeTime);
std::string ISO8601OrdinalDateStringWithTimeSeparator(Date date, char16_t timeSeparator);
std::string ISO8601OrdinalDateString(Date date);

}  // namespace kora
