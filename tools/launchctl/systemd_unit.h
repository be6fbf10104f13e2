#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "job_description.h"

namespace kora {

// The first line of every file that launchctl writes. launchctl replaces and
// removes only files that begin with it, so it never takes over a unit or an
// activation file that someone else put there.
inline constexpr std::string_view kWrittenByLaunchctl =
    "# Written by launchctl load from a job description; launchctl unload removes it.\n";

// "LABEL.service".
std::string unitName(const std::string& label);

// One argument of an ExecStart= line as systemd reads it back: quoted when it
// needs to be, with '%' and '$' doubled so that systemd expands nothing.
std::string execArgument(std::string_view argument);

// The systemd service unit for a job description.
std::string unitText(const JobDescription& job);

// The D-Bus system service activation file that has a call to `busName` start
// the job's unit.
std::string activationFileText(const std::string& busName, const std::string& label);

}  // namespace kora
