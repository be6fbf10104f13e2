#include "platform/tool_runner.h"

namespace kora {

ToolTable ToolTable::live() {
    // The adapters live in a folder fixed when the daemon is built, so nothing
    // at run time can point the daemon at another program.
    const std::filesystem::path libexec = KORAD_LIBEXEC_DIR;
    ToolTable table;
    table.set(kLaunchctl, libexec / "launchctl");
    table.set(kInstaller, libexec / "installer");
    return table;
}

std::filesystem::path ToolTable::pathFor(std::string_view tool) const {
    const auto found = programs_.find(tool);
    return found != programs_.end() ? found->second : std::filesystem::path(tool);
}

void ToolTable::set(std::string tool, std::filesystem::path program) {
    programs_.insert_or_assign(std::move(tool), std::move(program));
}

}  // namespace kora
