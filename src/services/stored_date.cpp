#include "services/stored_date.h"

#include <ctime>

#include "services/iso8601_parsing.h"

namespace kora {

std::string storedDateText(Date date) {
    const std::time_t seconds = static_cast<std::time_t>(unixSeconds(date));
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[64];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S %z", &local);
    return text;
}

std::optional<Date> dateFromStoredText(std::string_view text) { return dateWithString(text); }

}  // namespace kora
