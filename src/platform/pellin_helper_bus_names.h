#pragma once

namespace kora {

// Where the daemon finds its self-update helper on the system bus, and the one
// operation it offers. The helper and the daemon both use these, so the two
// sides cannot drift apart.
inline constexpr const char* kPellinHelperBusName = "com.olvara.PellinHelper";
inline constexpr const char* kPellinHelperObjectPath = "/com/olvara/PellinHelper";
inline constexpr const char* kPellinHelperInterface = "com.olvara.PellinHelper";
// (as identifier, as binary) -> b
inline constexpr const char* kInstallDaemonMember = "installDaemonWithIdentifier_andBinary";

}  // namespace kora
