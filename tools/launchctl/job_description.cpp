#include "job_description.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string_view>

#include "platform/loggable_text.h"

namespace kora {
namespace {

constexpr std::size_t kMaxLabelBytes = 255 - std::string_view(".service").size();
constexpr std::size_t kMaxBusNameBytes = 255;

// The keys this adapter carries over; any other is reported as ignored.
constexpr std::string_view kKnownKeys[] = {
    "Label",           "ProgramArguments",  "KeepAlive",   "RunAtLoad", "ThrottleInterval",
    "StandardOutPath", "StandardErrorPath", "MachServices"};

bool isAsciiAlnum(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}
bool isAsciiDigit(char c) {
    return c >= '0' && c <= '9';
}
bool isControl(char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
}

const char* typeName(const PlistValue& value) {
    if (value.is<std::string>()) return "a string";
    if (value.is<std::int64_t>()) return "an integer";
    if (value.is<double>()) return "a real number";
    if (value.is<bool>()) return "a boolean";
    if (value.is<Date>()) return "a date";
    if (value.is<PlistValue::Data>()) return "data";
    if (value.is<PlistValue::Array>()) return "an array";
    return "a dictionary";
}

[[noreturn]] void wrongType(std::string_view key, const char* expected, const PlistValue& value) {
    throw JobError(std::string(key) + " must be " + expected + ", not " + typeName(value));
}

template <typename T>
const T* optionalValue(const PlistDictionary& job, std::string_view key, const char* expected) {
    const PlistValue* value = job.find(key);
    if (value == nullptr) return nullptr;
    if (!value->is<T>()) wrongType(key, expected, *value);
    return value->as<T>();
}

// A D-Bus well-known name: two or more non-empty elements of letters, digits, '_'
// and '-' joined by '.', none beginning with a digit. It also names the
// activation file NAME.service, so it can hold no '/'.
bool isBusName(const std::string& name) {
    if (name.empty() || name.size() > kMaxBusNameBytes) return false;
    std::size_t elements = 0;
    std::size_t start = 0;
    while (true) {
        const std::size_t end = std::min(name.find('.', start), name.size());
        const std::string_view element(name.data() + start, end - start);
        const bool valid = !element.empty() && !isAsciiDigit(element.front()) &&
                           std::all_of(element.begin(), element.end(), [](char c) {
                               return isAsciiAlnum(c) || c == '_' || c == '-';
                           });
        if (!valid) return false;
        ++elements;
        if (end == name.size()) return elements >= 2;
        start = end + 1;
    }
}

// systemd takes a setting's value up to the end of its line, dropping trailing
// white space and joining a line that ends in '\' with the next; a path that
// could be cut or joined that way, or that is not absolute, is refused.
bool isUnitSafePath(const std::string& path) {
    if (path.empty() || path.front() != '/') return false;
    if (std::any_of(path.begin(), path.end(), isControl)) return false;
    const char last = path.back();
    return last != ' ' && last != '\\';
}

std::string label(const PlistDictionary& job) {
    const auto* value = optionalValue<std::string>(job, "Label", "a string");
    if (value == nullptr) throw JobError("the job description has no Label");
    if (!isSafeLabel(*value))
        throw JobError("Label " + quotedForMessage(*value) +
                       " is not a safe service name: use letters, digits, '.', '_' and '-', "
                       "beginning with a letter or a digit, at most 247 bytes");
    return *value;
}

std::vector<std::string> programArguments(const PlistDictionary& job) {
    const auto* array = optionalValue<PlistValue::Array>(job, "ProgramArguments", "an array");
    if (array == nullptr || array->empty())
        throw JobError("the job description has no ProgramArguments");
    std::vector<std::string> arguments;
    for (const PlistValue& element : *array) {
        if (!element.is<std::string>())
            wrongType("every element of ProgramArguments", "a string", element);
        arguments.push_back(*element.as<std::string>());
    }
    // systemd may expand "$NAME" in the program's path as in its arguments, and no
    // escape turns that off in the path.
    const std::string& program = arguments.front();
    if (!isUnitSafePath(program) || program.find('$') != std::string::npos)
        throw JobError("the program " + quotedForMessage(program) +
                       " (the first of ProgramArguments) must be an absolute path without "
                       "control characters or '$'");
    return arguments;
}

bool keepAlive(const PlistDictionary& job) {
    const PlistValue* value = job.find("KeepAlive");
    if (value == nullptr) return false;
    if (value->is<PlistDictionary>())
        throw JobError(
            "KeepAlive as a dictionary of conditions is not supported: use true or false");
    if (!value->is<bool>()) wrongType("KeepAlive", "a boolean", *value);
    return *value->as<bool>();
}

std::optional<std::int64_t> throttleInterval(const PlistDictionary& job) {
    const auto* value = optionalValue<std::int64_t>(job, "ThrottleInterval", "an integer");
    if (value == nullptr) return std::nullopt;
    if (*value < 0 || *value > std::numeric_limits<std::int32_t>::max())
        throw JobError("ThrottleInterval must be a number of seconds from 0 to 2147483647");
    return *value;
}

std::optional<std::string> logPath(const PlistDictionary& job, std::string_view key) {
    const auto* value = optionalValue<std::string>(job, key, "a string");
    if (value == nullptr) return std::nullopt;
    if (!isUnitSafePath(*value))
        throw JobError(std::string(key) + " " + quotedForMessage(*value) +
                       " must be an absolute path without control characters, not ending in a "
                       "space or '\\'");
    return *value;
}

// Each entry's value may be true or a dictionary of options; only the names matter.
std::vector<std::string> machServices(const PlistDictionary& job) {
    const auto* services = optionalValue<PlistDictionary>(job, "MachServices", "a dictionary");
    std::vector<std::string> names;
    if (services == nullptr) return names;
    for (const auto& [name, value] : services->entries()) {
        if (!value.is<bool>() && !value.is<PlistDictionary>())
            wrongType("MachServices " + quotedForMessage(name), "a boolean or a dictionary", value);
        if (!isBusName(name))
            throw JobError("MachServices name " + quotedForMessage(name) +
                           " is not a valid D-Bus name");
        names.push_back(name);
    }
    return names;
}

std::vector<std::string> ignoredKeys(const PlistDictionary& job) {
    std::vector<std::string> ignored;
    for (const auto& entry : job.entries()) {
        if (std::find(std::begin(kKnownKeys), std::end(kKnownKeys), entry.key) ==
            std::end(kKnownKeys))
            ignored.push_back(entry.key);
    }
    return ignored;
}

const PlistDictionary& jobDictionary(const PlistValue& root) {
    const auto* job = root.as<PlistDictionary>();
    if (job == nullptr)
        throw JobError("the job description must be a dictionary, not " +
                       std::string(typeName(root)));
    return *job;
}

}  // namespace

std::string quotedForMessage(std::string_view text) {
    constexpr std::size_t kMaxShown = 200;
    std::string shown = "\"";
    for (const char c : text.substr(0, kMaxShown)) {
        if (isControl(c)) {
            static constexpr char kHex[] = "0123456789abcdef";
            const auto byte = static_cast<unsigned char>(c);
            shown += {'\\', 'x', kHex[byte >> 4], kHex[byte & 15]};
        } else {
            shown += c;
        }
    }
    shown += text.size() > kMaxShown ? "\"..." : "\"";
    return shown;
}

bool isSafeLabel(const std::string& label) {
    if (label.empty() || label.size() > kMaxLabelBytes || !isAsciiAlnum(label.front()))
        return false;
    return std::all_of(label.begin(), label.end(),
                       [](char c) { return isAsciiAlnum(c) || c == '.' || c == '_' || c == '-'; });
}

JobDescription jobDescriptionFrom(const PlistValue& root) {
    const PlistDictionary& job = jobDictionary(root);
    JobDescription description;
    description.label = label(job);
    description.programArguments = programArguments(job);
    description.keepAlive = keepAlive(job);
    const auto* runAtLoad = optionalValue<bool>(job, "RunAtLoad", "a boolean");
    description.runAtLoad = runAtLoad != nullptr && *runAtLoad;
    description.throttleInterval = throttleInterval(job);
    description.standardOutPath = logPath(job, "StandardOutPath");
    description.standardErrorPath = logPath(job, "StandardErrorPath");
    description.machServices = machServices(job);
    description.ignoredKeys = ignoredKeys(job);
    return description;
}

namespace {

template <typename Result>
Result readJobFile(const std::filesystem::path& file, Result (*convert)(const PlistValue&)) {
    const std::optional<PlistValue> root = readPropertyList(file);
    if (!root)
        throw JobError(
            loggable(file.string()) +
            ": not a readable property list (missing, unreadable, malformed or too large)");
    try {
        return convert(*root);
    } catch (const JobError& error) {
        throw JobError(loggable(file.string()) + ": " + error.what());
    }
}

std::string jobLabel(const PlistValue& root) {
    return label(jobDictionary(root));
}

}  // namespace

JobDescription readJobDescription(const std::filesystem::path& file) {
    return readJobFile(file, jobDescriptionFrom);
}

std::string readJobLabel(const std::filesystem::path& file) {
    return readJobFile(file, jobLabel);
}

}  // namespace kora
