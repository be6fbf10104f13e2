#pragma once

// The entry frame that the launchctl and installer adapters share: "--help"
// anywhere prints the manual, a wrong command line exits with status 2 and the
// usage, any other error with status 1 and one line saying why.

#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

namespace kora {

class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct AdapterText {
    const char* name;   // "launchctl"
    const char* usage;  // the synopsis after the name
    const char* help;   // the manual
};

// `run` carries out the command line and returns the exit status; it throws
// UsageError for a wrong command line and std::exception for any failure.
inline int adapterMain(int argc, char** argv, const AdapterText& text,
                       int (*run)(const std::vector<std::string>& words)) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    for (const std::string& word : words) {
        if (word == "--help") {
            std::fputs(text.help, stdout);
            return 0;
        }
    }
    try {
        return run(words);
    } catch (const UsageError& error) {
        std::fprintf(stderr, "%s: %s\nUsage: %s %s\nTry '%s --help' for more information.\n",
                     text.name, error.what(), text.name, text.usage, text.name);
        return 2;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", text.name, error.what());
        return 1;
    }
}

}  // namespace kora
