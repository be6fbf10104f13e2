#include <glib.h>
#include <gtest/gtest.h>

int main(int argc, char** argv) {
    // A GLib critical or warning in a test is a fault, not noise.
    g_log_set_always_fatal(static_cast<GLogLevelFlags>(G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_WARNING));
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
