#pragma once

#include <string>
#include <vector>

namespace kora::service {

// One sub-command of kora-service: `run` gets the words after its name and
// returns the exit status; it throws UsageError for a wrong command line and
// any other std::exception for a failure.
struct Command {
    const char* name;
    const char* synopsis;  // after "kora-service "
    const char* help;      // the manual page of the command
    int (*run)(const std::vector<std::string>& words);
};

extern const Command kServeCommand;
extern const Command kPublishCommand;
extern const Command kOffersCommand;
extern const Command kWithdrawCommand;
extern const Command kJournalCommand;

}  // namespace kora::service
