#include <gtest/gtest.h>

#include "support/installer_fixture.h"
#include "update/kora_installer.h"

namespace kora::test {
namespace {

using Process = RunningApplications::Process;
using Launches = std::vector<std::pair<fs::path, uid_t>>;

class StoppingAndStarting : public InstallerTest {
  protected:
    StoppingAndStarting() {
        registerApplications({{"com.ex.Reg", dictionaryOf({{"bundlePath", registered.string()}})}});
        fs::create_directories(registered);
        workspace.bundles = {{"com.ex.Reg", "/Ws/Reg.app"}, {"com.ex.Ws", "/Ws/Ws.app"}};
    }
    const fs::path registered = temp.path() / "Reg.app";
};

TEST_F(StoppingAndStarting, StopsTheRegisteredBundleElseTheWorkspacesAndAnswersTrue) {
    EXPECT_FALSE(installer().KillApplication(std::nullopt));
    for (const char* identifier : {"com.ex.Reg", "com.ex.Ws", "com.ex.Unknown"}) {
        EXPECT_TRUE(installer().KillApplication(identifier)) << identifier;
    }
    EXPECT_EQ(running.asked, (std::vector<fs::path>{registered, "/Ws/Ws.app"}));

    running.available_ = false;
    EXPECT_TRUE(installer().KillApplication("com.ex.Reg"));
    EXPECT_EQ(running.asked.size(), 2u);
}

TEST_F(StoppingAndStarting, StartsAsTheUserWhoRanItElseTheOwnerButNeverAsRoot) {
    const fs::path ws = "/Ws/Ws.app";
    const std::string notStarting =
        "Not starting com.ex.Ws: it never runs as root, and no other user ran it or owns /Ws/Ws.app\n";
    const struct {
        const char* name;
        std::vector<Process> stopped;  // what KillApplication stopped first; empty: not called
        std::optional<uid_t> owner;
        Launches launches;
        std::vector<std::string> lines;
    } rows[] = {
        {"user who ran it", {{10, 0}, {11, 1001}, {12, 1002}}, 0, {{ws, 1001}}, {}},
        {"owner when nobody ran it", {}, 1003, {{ws, 1003}}, {}},
        {"only root ran it, owner", {{10, 0}}, 1003, {{ws, 1003}}, {}},
        {"root owner", {}, 0, {}, {notStarting}},
        {"only root ran it, root owner", {{10, 0}}, 0, {}, {notStarting}},
        {"owner unknown", {}, std::nullopt, {}, {notStarting}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        running.running[ws] = row.stopped;
        launcher.owners.clear();
        if (row.owner) launcher.owners[ws] = *row.owner;
        launcher.launched.clear();
        lines.clear();
        if (!row.stopped.empty()) {
            EXPECT_TRUE(installer().KillApplication("com.ex.Ws"));
        }
        EXPECT_TRUE(installer().StartApplication("com.ex.Ws"));
        EXPECT_EQ(launcher.launched, row.launches);
        EXPECT_EQ(lines, row.lines);
    }
}

TEST_F(StoppingAndStarting, StartsTheRegisteredBundleOnlyWhenItExists) {
    launcher.owners = {{registered, 1001}, {"/Ws/Reg.app", 1002}, {"/Ws/Ws.app", 1003}};
    EXPECT_TRUE(installer().StartApplication("com.ex.Reg"));
    fs::remove(registered);
    EXPECT_TRUE(installer().StartApplication("com.ex.Reg"));
    EXPECT_TRUE(installer().StartApplication("com.ex.Unknown"));
    EXPECT_TRUE(installer().StartApplication(std::nullopt));
    running.available_ = false;
    EXPECT_TRUE(installer().StartApplication("com.ex.Ws"));
    EXPECT_EQ(launcher.launched, (Launches{{registered, 1001}, {"/Ws/Reg.app", 1002}}));
}

}  // namespace
}  // namespace kora::test
