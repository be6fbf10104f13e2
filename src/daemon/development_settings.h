#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace kora {

// Looks up one environment variable; none when it is not set.
using EnvironmentLookup = std::function<std::optional<std::string>(std::string_view name)>;

// What the daemon takes from its environment at start. These variables are
// for development and end-to-end runs only; none is set in production, where
// every value is the built-in one. This is the one place that reads them: the
// libraries below the daemon's entry are handed the values.
struct DevelopmentSettings {
    // KORAD_SERVICE_ADDRESS when set and not empty, else the built-in endpoint.
    std::string serviceAddress;
    // KORAD_REACHABILITY_HOST when set and not empty, else the host of
    // serviceAddress: the host whose reachability decides whether the network
    // is up. Kept for the installer and the check for updates, which take it
    // as a value.
    std::string reachabilityHost;
    // KORAD_TICK_SECONDS (see tickIntervalFromText), else 30 seconds.
    std::chrono::milliseconds tickInterval;
};

DevelopmentSettings readDevelopmentSettings(const EnvironmentLookup& lookup);

// The process environment.
std::optional<std::string> processEnvironment(std::string_view name);

// A tick interval given as a whole number of seconds from 1 to 86400 (a day,
// so the milliseconds cannot overflow GLib's interval); any other text gives
// the built-in 30 seconds.
std::chrono::milliseconds tickIntervalFromText(std::string_view digits);

}  // namespace kora
