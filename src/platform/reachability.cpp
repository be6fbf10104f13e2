#include "platform/reachability.h"

#include <gio/gio.h>

namespace kora {
namespace {

struct Answer {
    bool done = false;
    bool reachable = false;
};

void answered(GObject* monitor, GAsyncResult* result, gpointer data) {
    auto* answer = static_cast<Answer*>(data);
    g_autoptr(GError) error = nullptr;
    answer->reachable = g_network_monitor_can_reach_finish(G_NETWORK_MONITOR(monitor), result, &error);
    answer->done = true;
}

}  // namespace

std::optional<Reachability::Flags> LiveReachability::flagsForHost(const std::string& host) {
    if (host.empty()) return std::nullopt;
    GNetworkMonitor* monitor = g_network_monitor_get_default();  // owned by GIO
    if (!g_network_monitor_get_network_available(monitor)) {
        // No network at all: one would have to be brought up first.
        return Flags{.reachable = false, .connectionRequired = true};
    }
    // The port plays no part in the answer: the monitor resolves the name and
    // looks for a route.
    g_autoptr(GSocketConnectable) address = g_network_address_new(host.c_str(), 0);
    Answer answer;
    g_network_monitor_can_reach_async(monitor, address, nullptr, answered, &answer);
    // Name resolution may take a while; the daemon keeps serving meanwhile.
    while (!answer.done) g_main_context_iteration(nullptr, TRUE);
    return Flags{.reachable = answer.reachable, .connectionRequired = false};
}

}  // namespace kora
