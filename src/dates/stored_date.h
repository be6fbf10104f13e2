#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/date.h"

namespace kora {

// How dates are kept in the registry file and sent in notices:
// "YYYY-MM-DD HH:MM:SS +HHMM", written in local time.
std::string storedDateText(Date date);

// Reads the date and time fields as local wall-clock time; the offset is not
// read. Exact to the second for any text storedDateText wrote in this zone.
std::optional<Date> dateFromStoredText(std::string_view text);

}  // namespace kora
