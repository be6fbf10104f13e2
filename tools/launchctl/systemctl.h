#pragma once

#include <string>
#include <vector>

namespace kora {

// systemd's own test: this folder exists only while systemd manages the system.
inline constexpr const char* kSystemdRuntimeFolder = "/run/systemd/system";
bool systemdIsRunning();

// Runs systemctl with the arguments and waits for it. Throws std::runtime_error
// naming the command when it could not run or failed.
void systemctl(const std::vector<std::string>& arguments);

}  // namespace kora
