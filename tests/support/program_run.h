#pragma once

#include <glib.h>
#include <sys/wait.h>

#include <string>
#include <vector>

namespace kora {

struct ProgramRun {
    int status = -1;  // the exit status; -1 when it did not start or exit
    std::string out;
    std::string err;
};

// Runs a program (looked up on PATH unless the path is absolute) and waits for
// it, with its standard output and error captured.
inline ProgramRun runProgramCaptured(const std::vector<std::string>& command) {
    std::vector<char*> argv;
    for (const std::string& word : command) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    g_autofree gchar* out = nullptr;
    g_autofree gchar* err = nullptr;
    int wait = 0;
    g_autoptr(GError) error = nullptr;
    if (!g_spawn_sync(nullptr, argv.data(), nullptr, G_SPAWN_SEARCH_PATH, nullptr, nullptr, &out,
                      &err, &wait, &error))
        return {-1, "", error->message};
    return {WIFEXITED(wait) ? WEXITSTATUS(wait) : -1, out, err};
}

}  // namespace kora
