#include "platform/run_program.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

namespace kora {
namespace {

std::string_view variableName(std::string_view entry) {
    return entry.substr(0, entry.find('='));
}

std::vector<std::string> mergedEnvironment(const std::vector<std::string>& overrides) {
    std::vector<std::string> merged;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        bool replaced = false;
        for (const std::string& override : overrides)
            replaced = replaced || variableName(override) == variableName(*entry);
        if (!replaced) merged.emplace_back(*entry);
    }
    merged.insert(merged.end(), overrides.begin(), overrides.end());
    return merged;
}

std::vector<char*> pointersTo(std::vector<std::string>& strings) {
    std::vector<char*> pointers;
    for (std::string& text : strings) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

int runProgram(const std::vector<std::string>& arguments,
               const std::vector<std::string>& environment) {
    if (arguments.empty()) return -1;
    std::vector<std::string> argv = arguments;
    std::vector<std::string> envp = mergedEnvironment(environment);
    pid_t pid = 0;
    if (::posix_spawn(&pid, argv[0].c_str(), nullptr, nullptr, pointersTo(argv).data(),
                      pointersTo(envp).data()) != 0)
        return -1;
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace kora
