#pragma once

#include <chrono>

namespace kora {

// Every date in the system is an instant on the system clock, to the
// microsecond; "no date" is an empty std::optional<Date>. Microseconds (not the
// clock's nanoseconds) let a date reach any year a text can name, from year 1
// on, where nanoseconds end in 1677 and 2262.
using Date = std::chrono::sys_time<std::chrono::microseconds>;

inline Date now() {
    return std::chrono::time_point_cast<std::chrono::microseconds>(
        std::chrono::system_clock::now());
}

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
