#pragma once

#include <cstddef>
#include <string>

#include "platform/input_limits.h"

namespace kora {

// The update service's endpoint as built in; the host is a build setting.
inline constexpr const char* kDefaultKoraServiceAddress =
    "https://" KORA_SERVICE_HOST "/telso/cm/webservices/kora2.asmx";

inline constexpr const char* kKoraUserAgent = "Tarvo/0.2 OSX";
inline constexpr double kKoraDefaultTimeoutSeconds = 10;

}  // namespace kora
