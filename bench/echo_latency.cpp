// Round-trip time of echo calls to a running korad through the client library,
// the way a client application calls it: one connection, calls one after the
// other. Prints the distribution in microseconds.
//
// usage: echo_latency [CALLS]     (default 1000; the bus is the system bus, or
//                                  DBUS_SYSTEM_BUS_ADDRESS)

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "client/kora_client.h"

int main(int argc, char** argv) {
    const int calls = argc > 1 ? std::max(1, std::atoi(argv[1])) : 1000;
    try {
        kora::KoraClient client;
        for (int i = 0; i < 20; ++i) client.echo("warm-up");  // connection and caches settle

        std::vector<double> micros;
        micros.reserve(calls);
        for (int i = 0; i < calls; ++i) {
            const auto start = std::chrono::steady_clock::now();
            client.echo("ping");
            const std::chrono::duration<double, std::micro> took =
                std::chrono::steady_clock::now() - start;
            micros.push_back(took.count());
        }
        std::sort(micros.begin(), micros.end());
        auto at = [&](double q) { return micros[static_cast<std::size_t>(q * (calls - 1))]; };
        std::printf(
            "echo calls: %d  median %.0f us  p90 %.0f us  p99 %.0f us  min %.0f us  "
            "max %.0f us\n",
            calls, at(0.5), at(0.9), at(0.99), micros.front(), micros.back());
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "echo_latency: %s\n", failure.what());
        return 1;
    }
}
