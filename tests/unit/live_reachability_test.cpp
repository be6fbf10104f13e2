#include "platform/reachability.h"

#include <gio/gio.h>
#include <gtest/gtest.h>

namespace kora {
namespace {

using Flags = Reachability::Flags;

TEST(LiveReachability, AsksTheNetworkMonitorWhileTheMainContextKeepsTurning) {
    LiveReachability reachability;
    EXPECT_FALSE(reachability.flagsForHost("").has_value());
    if (!g_network_monitor_get_network_available(g_network_monitor_get_default())) {
        const auto flags = reachability.flagsForHost("localhost");
        ASSERT_TRUE(flags);
        EXPECT_TRUE(!flags->reachable && flags->connectionRequired);
        return;
    }
    // A source that is ready before the question is dispatched while it is asked.
    bool served = false;
    g_idle_add_once([](gpointer data) { *static_cast<bool*>(data) = true; }, &served);
    const auto local = reachability.flagsForHost("localhost");
    EXPECT_TRUE(served);
    ASSERT_TRUE(local);
    EXPECT_TRUE(local->reachable && !local->connectionRequired);
    const auto unknown = reachability.flagsForHost("no-such-host.invalid");
    ASSERT_TRUE(unknown);
    EXPECT_FALSE(unknown->reachable);
}

}  // namespace
}  // namespace kora
