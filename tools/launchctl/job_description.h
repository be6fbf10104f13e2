#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "platform/property_list.h"

namespace kora {

// A job description that cannot be turned into a service; the text says why.
class JobError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The keys of a job description that launchctl carries over to systemd, checked.
struct JobDescription {
    std::string label;                          // a safe unit name (see isSafeLabel)
    std::vector<std::string> programArguments;  // the first is an absolute path
    bool keepAlive = false;
    bool runAtLoad = false;
    std::optional<std::int64_t> throttleInterval;  // seconds, 0 to INT32_MAX
    std::optional<std::string> standardOutPath;    // absolute
    std::optional<std::string> standardErrorPath;  // absolute
    std::vector<std::string> machServices;         // D-Bus names, in the file's order
    std::vector<std::string> ignoredKeys;          // keys launchctl does not carry over
};

// Letters, digits, '.', '_' and '-', beginning with a letter or a digit, at most
// 247 bytes: the label names the unit file LABEL.service, which systemd allows up
// to 255 bytes, and which systemctl must never mistake for an option or a path.
bool isSafeLabel(const std::string& label);

// A text from a job file in double quotes, for a message: control characters
// escaped, and cut short when long.
std::string quotedForMessage(std::string_view text);

// The job description held by a property list's root. Throws JobError.
JobDescription jobDescriptionFrom(const PlistValue& root);

// Reads and checks a job file. Throws JobError, naming the file.
JobDescription readJobDescription(const std::filesystem::path& file);

// Only the checked Label of a job file, which is all that unloading needs.
std::string readJobLabel(const std::filesystem::path& file);

}  // namespace kora
