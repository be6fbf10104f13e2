#include "platform/tool_runner.h"

#include <gio/gio.h>

#include <csignal>

namespace kora {
namespace {

struct Communication {
    bool done = false;
    GBytes* output = nullptr;
    GError* error = nullptr;
};

void communicated(GObject* source, GAsyncResult* result, gpointer data) {
    auto* communication = static_cast<Communication*>(data);
    g_subprocess_communicate_finish(G_SUBPROCESS(source), result, &communication->output, nullptr,
                                    &communication->error);
    communication->done = true;
}

int resultCodeOf(GSubprocess* process) {
    if (g_subprocess_get_if_exited(process)) return g_subprocess_get_exit_status(process);
    if (g_subprocess_get_if_signaled(process)) return 128 + g_subprocess_get_term_sig(process);
    return -1;
}

}  // namespace

ToolRunner::Bytes LiveToolRunner::run(const std::filesystem::path& program,
                                      const std::vector<std::string>& arguments, int& resultCode) {
    resultCode = -1;
    std::vector<const char*> argv;
    argv.reserve(arguments.size() + 2);
    argv.push_back(program.c_str());
    for (const std::string& argument : arguments) argv.push_back(argument.c_str());
    argv.push_back(nullptr);

    g_autoptr(GError) error = nullptr;
    g_autoptr(GSubprocess) process = g_subprocess_newv(
        argv.data(), static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDOUT_PIPE | G_SUBPROCESS_FLAGS_STDIN_PIPE),
        &error);
    if (process == nullptr) return {};

    // The input is empty, so the input pipe is closed as soon as the exchange
    // starts. The default context keeps turning (the daemon's nested-wait rule),
    // and the exchange ends only when the output is drained and the tool has
    // exited.
    g_autoptr(GBytes) noInput = g_bytes_new(nullptr, 0);
    Communication communication;
    g_subprocess_communicate_async(process, noInput, nullptr, communicated, &communication);
    while (!communication.done) g_main_context_iteration(nullptr, TRUE);

    g_autoptr(GBytes) output = communication.output;
    g_autoptr(GError) communicationError = communication.error;
    if (communicationError != nullptr) {
        // The output could not be read; the tool still has to be reaped.
        g_subprocess_wait(process, nullptr, nullptr);
    }
    resultCode = resultCodeOf(process);
    if (output == nullptr) return {};
    gsize size = 0;
    const auto* data = static_cast<const std::uint8_t*>(g_bytes_get_data(output, &size));
    return Bytes(data, data + size);
}

}  // namespace kora
