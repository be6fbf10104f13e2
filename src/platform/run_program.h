#pragma once

#include <string>
#include <vector>

namespace kora {

// Runs a program given by absolute path (arguments[0]) with our standard streams
// and waits for it to end. Each entry of `environment` ("NAME=value") replaces
// or adds that variable; the rest of our environment is passed on. The exit
// status, or -1 when the program could not be started or was killed by a signal.
int runProgram(const std::vector<std::string>& arguments,
               const std::vector<std::string>& environment = {});

}  // namespace kora
