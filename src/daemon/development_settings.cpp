#include "daemon/development_settings.h"

#include <glib.h>

#include <charconv>

#include "controller/kora_controller_settings.h"
#include "soap/service_settings.h"
#include "update/kora_installer.h"

namespace kora {
namespace {

std::optional<std::string> nonEmpty(const EnvironmentLookup& lookup, std::string_view name) {
    auto value = lookup(name);
    if (value && value->empty()) return std::nullopt;
    return value;
}

}  // namespace

std::chrono::milliseconds tickIntervalFromText(std::string_view digits) {
    unsigned seconds = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), seconds);
    if (error != std::errc{} || end != digits.data() + digits.size() || seconds == 0 ||
        seconds > 86400) {
        return kTickInterval;
    }
    return std::chrono::seconds{seconds};
}

DevelopmentSettings readDevelopmentSettings(const EnvironmentLookup& lookup) {
    DevelopmentSettings settings;
    settings.serviceAddress =
        nonEmpty(lookup, "KORAD_SERVICE_ADDRESS").value_or(kDefaultKoraServiceAddress);
    settings.reachabilityHost = nonEmpty(lookup, "KORAD_REACHABILITY_HOST")
                                    .value_or(KoraReachabilityHost(settings.serviceAddress));
    const auto tick = lookup("KORAD_TICK_SECONDS");
    settings.tickInterval = tick ? tickIntervalFromText(*tick) : kTickInterval;
    return settings;
}

std::optional<std::string> processEnvironment(std::string_view name) {
    const char* value = g_getenv(std::string(name).c_str());
    if (value == nullptr) return std::nullopt;
    return value;
}

}  // namespace kora
