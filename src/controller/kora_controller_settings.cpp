#include "controller/kora_controller_settings.h"

#include <charconv>
#include <cstdlib>
#include <string_view>

namespace kora {

std::chrono::milliseconds tickIntervalFromEnvironment() {
    const char* text = std::getenv("KORAD_TICK_SECONDS");
    if (!text) return kTickInterval;
    const std::string_view digits(text);
    // Bounded to a day so the millisecond count cannot overflow GLib's interval.
    unsigned seconds = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), seconds);
    if (error != std::errc{} || end != digits.data() + digits.size() || seconds == 0 ||
        seconds > 86400) {
        return kTickInterval;
    }
    return std::chrono::seconds{seconds};
}

}  // namespace kora
