#pragma once

namespace kora {

// The running program's own executable file, as the kernel exposes it. It stays
// readable even when the file has been replaced on disk since the start.
inline constexpr const char* kOwnExecutablePath = "/proc/self/exe";

}  // namespace kora
