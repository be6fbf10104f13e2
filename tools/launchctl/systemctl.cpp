#include "systemctl.h"

#include <filesystem>
#include <stdexcept>

#include "platform/run_program.h"

namespace kora {
namespace {

// Debian keeps systemctl in /bin, which a merged /usr links to /usr/bin. A fixed
// path: a root tool does not search a PATH that its caller chose.
constexpr const char* kSystemctl = "/bin/systemctl";

}  // namespace

bool systemdIsRunning() {
    std::error_code error;
    return std::filesystem::is_directory(kSystemdRuntimeFolder, error);
}

void systemctl(const std::vector<std::string>& arguments) {
    std::vector<std::string> command{kSystemctl};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const int status = runProgram(command);
    if (status == 0) return;
    std::string line;
    for (const std::string& word : command) line += (line.empty() ? "" : " ") + word;
    throw std::runtime_error(status < 0 ? line + " could not run"
                                        : line + " failed with status " + std::to_string(status));
}

}  // namespace kora
