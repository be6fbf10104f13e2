#pragma once

#include <gio/gio.h>

#include <string>
#include <vector>

namespace kora {

struct CommandOutcome {
    int status = -1;     // the exit status, or -1 when the command did not exit normally
    std::string output;  // standard output, and standard error too unless kept apart
    std::string errors;  // standard error when kept apart
};

enum class ErrorStream { merged, apart };

// Runs a command (looked up on PATH unless the path is absolute) to its end.
// The default main context turns meanwhile, so a loopback server or bus peer
// of the test can answer what the command sends.
inline CommandOutcome runCommand(const std::vector<std::string>& command,
                                 ErrorStream errorStream = ErrorStream::merged) {
    const bool apart = errorStream == ErrorStream::apart;
    std::vector<const char*> argv;
    for (const auto& word : command) argv.push_back(word.c_str());
    argv.push_back(nullptr);
    g_autoptr(GError) error = nullptr;
    g_autoptr(GSubprocess) process =
        g_subprocess_newv(argv.data(),
                          static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDOUT_PIPE |
                                                        (apart ? G_SUBPROCESS_FLAGS_STDERR_PIPE
                                                               : G_SUBPROCESS_FLAGS_STDERR_MERGE)),
                          &error);
    if (!process)
        return apart ? CommandOutcome{-1, "", error->message}
                     : CommandOutcome{-1, error->message, ""};
    struct Ending {
        bool done = false;
        GBytes* output = nullptr;
        GBytes* errors = nullptr;
    } ending;
    g_subprocess_communicate_async(
        process, nullptr, nullptr,
        [](GObject* source, GAsyncResult* result, gpointer data) {
            auto* ending = static_cast<Ending*>(data);
            g_subprocess_communicate_finish(G_SUBPROCESS(source), result, &ending->output,
                                            &ending->errors, nullptr);
            ending->done = true;
        },
        &ending);
    while (!ending.done) g_main_context_iteration(nullptr, TRUE);
    const auto take = [](GBytes* bytes) {
        std::string text;
        if (bytes == nullptr) return text;
        gsize size = 0;
        const auto* data = static_cast<const char*>(g_bytes_get_data(bytes, &size));
        text.assign(data, size);
        g_bytes_unref(bytes);
        return text;
    };
    const std::string output = take(ending.output);
    const std::string errors = take(ending.errors);
    const bool exited = g_subprocess_get_if_exited(process);
    return {exited ? g_subprocess_get_exit_status(process) : -1, output, errors};
}

}  // namespace kora
