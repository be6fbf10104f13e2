// An update archive downloaded by KoraUpdate over loopback, for
// bench/download_bench, which runs `curl -o` against the same server.
//
// usage: download_archive serve FILE         serves FILE at any path; prints the port
//        download_archive fetch URL FOLDER   downloads URL into FOLDER; prints the time
//                                            and the peak RSS above idle
#include <glib.h>
#include <libsoup/soup.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>

#include "update/kora_update.h"
#include "update/kora_update_delegate.h"

using namespace kora;

namespace {

// A line of /proc/self/status such as "VmRSS:", in KiB.
long statusKiB(const std::string& key) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind(key, 0) == 0) return std::stol(line.substr(key.size()));
    }
    return -1;
}

int serve(const char* file) {
    GError* error = nullptr;
    GMappedFile* mapped = g_mapped_file_new(file, FALSE, &error);
    if (mapped == nullptr) {
        std::fprintf(stderr, "%s\n", error->message);
        return 1;
    }
    GBytes* archive = g_mapped_file_get_bytes(mapped);
    SoupServer* server = soup_server_new(nullptr, nullptr);
    soup_server_add_handler(
        server, nullptr,
        [](SoupServer*, SoupServerMessage* message, const char*, GHashTable*, gpointer data) {
            soup_server_message_set_status(message, 200, nullptr);
            soup_message_body_append_bytes(soup_server_message_get_response_body(message),
                                           static_cast<GBytes*>(data));
        },
        archive, nullptr);
    if (!soup_server_listen_local(server, 0, SOUP_SERVER_LISTEN_IPV4_ONLY, &error)) {
        std::fprintf(stderr, "%s\n", error->message);
        return 1;
    }
    GSList* uris = soup_server_get_uris(server);
    std::printf("%d\n", g_uri_get_port(static_cast<GUri*>(uris->data)));
    std::fflush(stdout);
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
    return 0;
}

struct Outcome final : KoraUpdateDelegate {
    bool done = false;
    bool failed = false;
    void downloadErrorOn(const std::shared_ptr<KoraUpdate>&) override { done = failed = true; }
    void downloadDidFinishFor(const std::shared_ptr<KoraUpdate>&) override { done = true; }
    void installationErrorOn(const std::shared_ptr<KoraUpdate>&) override {}
    void installationDidFinishFor(const std::shared_ptr<KoraUpdate>&) override {}
};

int fetch(const char* url, const char* folder) {
    Outcome outcome;
    auto update = std::make_shared<KoraUpdate>();
    update->setDelegate(&outcome);
    update->setDownloadFolder(folder);
    update->setDownloadLocation(url);
    const long idle = statusKiB("VmRSS:");
    // Writing 5 resets the peak, so VmHWM afterwards is the download's own.
    std::ofstream("/proc/self/clear_refs") << "5";
    const auto start = std::chrono::steady_clock::now();
    if (!update->startDownload()) return 1;
    while (!outcome.done) g_main_context_iteration(nullptr, TRUE);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const long peak = statusKiB("VmHWM:");
    std::printf("korad %.3f s  idle RSS %ld KiB  peak RSS %ld KiB  (+%ld KiB)\n", seconds, idle,
                peak, peak - idle);
    return outcome.failed ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "serve" && argc == 3) return serve(argv[2]);
    if (mode == "fetch" && argc == 4) return fetch(argv[2], argv[3]);
    std::fprintf(stderr, "usage: download_archive serve FILE | fetch URL FOLDER\n");
    return 2;
}
