#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <memory>

#include "platform/clock.h"
#include "platform/input_limits.h"
#include "platform/machine_facts.h"
#include "platform/workspace.h"
#include "registry/kora_db.h"

namespace kora {

// Timing of the check sequence.
inline constexpr std::chrono::seconds kTickInterval{30};
inline constexpr std::chrono::seconds kHourlyThreshold{3600};
inline constexpr std::chrono::seconds kDailyThreshold{86400};

// What a controller is built on. The defaults are the daemon's; tests point
// the paths at temporary folders and hand in their own workspace, clock,
// machine facts and interval.
// Nothing here comes from the environment: the daemon's entry reads its
// development settings and passes the values in.
struct KoraControllerSettings {
    // The registry file, which also carries "LastKoraCheckDate".
    std::filesystem::path configPath = KoraDB::kDefaultPath;
    // Where the applications' own preference files are read.
    std::filesystem::path preferencesFolder = KoraDB::kPreferencesFolder;
    // None: the live workspace on "/Applications".
    std::shared_ptr<const Workspace> workspace;
    std::chrono::milliseconds tickInterval = kTickInterval;
    // None: the system clock.
    std::shared_ptr<const Clock> clock;
    // None: the live facts of this machine.
    std::shared_ptr<const MachineFacts> machineFacts;
    // Where every update the controller drives downloads its archive.
    std::filesystem::path downloadFolder = "/tmp/";
    // The largest registry file written: what the reader accepts (tests lower it).
    std::size_t registryMaxBytes = kPlistMaxBytes;
};

}  // namespace kora
