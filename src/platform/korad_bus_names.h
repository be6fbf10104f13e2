#pragma once

namespace kora {

// Where clients find the daemon on the system bus. The daemon and the client
// library both use these, so they cannot drift apart.
inline constexpr const char* kKoradBusName = "com.olvara.Korad";
inline constexpr const char* kKoradObjectPath = "/com/olvara/Korad";
inline constexpr const char* kKoradInterface = "com.olvara.Korad";

}  // namespace kora
