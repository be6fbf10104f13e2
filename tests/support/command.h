#pragma once

#include <glib.h>
#include <sys/wait.h>

#include <string>
#include <vector>

namespace kora {

struct CommandOutcome {
    int status = -1;     // the exit status, or -1 when the command did not exit normally
    std::string output;  // standard output and error together
};

// Runs a command (looked up in PATH) to its end.
inline CommandOutcome runCommand(const std::vector<std::string>& command) {
    std::vector<char*> argv;
    for (const auto& word : command) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    g_autofree gchar* out = nullptr;
    g_autofree gchar* err = nullptr;
    int wait = 0;
    g_autoptr(GError) error = nullptr;
    if (!g_spawn_sync(nullptr, argv.data(), nullptr, G_SPAWN_SEARCH_PATH, nullptr, nullptr, &out,
                      &err, &wait, &error))
        return {-1, error->message};
    return {WIFEXITED(wait) ? WEXITSTATUS(wait) : -1, std::string(out) + err};
}

}  // namespace kora
