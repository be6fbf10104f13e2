#pragma once

#include <chrono>

namespace kora {

// Every date in the system is an instant on the system clock; "no date" is an
// empty std::optional<Date>.
using Date = std::chrono::system_clock::time_point;

// The epoch marks an event that has not happened yet (a check never run, an
// update never postponed).
inline constexpr Date kEpoch{};

inline Date dateFromUnixSeconds(std::int64_t seconds) {
    return Date{std::chrono::seconds{seconds}};
}

inline std::int64_t unixSeconds(Date date) {
    return std::chrono::floor<std::chrono::seconds>(date.time_since_epoch()).count();
}

}  // namespace kora
