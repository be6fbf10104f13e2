#include "platform/machine_facts.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <strings.h>
#include <sys/utsname.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <fstream>
#include <utility>

namespace kora {
namespace {

// The machine id is hashed with this key, so what the service sees is stable
// for this daemon but cannot be matched with what other programs send.
constexpr std::string_view kMachineIdKey = "com.olvara.Korad";

// The files are tiny; a larger one is not what it should be and is cut short.
constexpr std::streamsize kMaxFactBytes = 4096;

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view kSpace = " \t\r\n";
    const auto first = text.find_first_not_of(kSpace);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kSpace) - first + 1);
}

// The file's first line without surrounding blanks; none when it cannot be
// read or holds nothing.
std::optional<std::string> firstLine(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::string text(kMaxFactBytes, '\0');
    in.read(text.data(), kMaxFactBytes);
    text.resize(static_cast<std::size_t>(in.gcount()));
    const std::string_view line = trimmed(std::string_view(text).substr(0, text.find('\n')));
    if (line.empty()) return std::nullopt;
    return std::string(line);
}

std::optional<std::string> keyedMachineId(const std::string& machineId) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned length = 0;
    if (HMAC(EVP_sha256(), kMachineIdKey.data(), static_cast<int>(kMachineIdKey.size()),
             reinterpret_cast<const unsigned char*>(machineId.data()), machineId.size(),
             digest.data(), &length) == nullptr) {
        return std::nullopt;
    }
    // 128 bits, written like a machine id: 32 lower-case hexadecimal digits.
    std::string text;
    for (unsigned i = 0; i < std::min(length, 16u); ++i) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02x", digest[i]);
        text += pair;
    }
    return text;
}

}  // namespace

bool isPlaceholderSerial(std::string_view serial) {
    serial = trimmed(serial);
    if (serial.find_first_not_of("0 -") == std::string_view::npos) return true;
    static constexpr std::string_view kPlaceholders[] = {
        "To be filled by O.E.M.", "Default string",   "System Serial Number",
        "Not Specified",          "Not Applicable",   "None",
        "N/A",                    "Chassis Serial Number", "Base Board Serial Number",
        "0123456789",             "123456789",        "xxxxxxxxxxxx",
    };
    return std::any_of(std::begin(kPlaceholders), std::end(kPlaceholders), [&](auto placeholder) {
        return serial.size() == placeholder.size() &&
               strncasecmp(serial.data(), placeholder.data(), serial.size()) == 0;
    });
}

MachineFacts::Release releaseNumbers(std::string_view release) {
    std::optional<int> numbers[3];
    const char* at = release.data();
    const char* end = release.data() + release.size();
    for (auto& number : numbers) {
        int value = 0;
        const auto [next, error] = std::from_chars(at, end, value);
        if (error != std::errc{} || value < 0) break;
        number = value;
        if (next == end || *next != '.') break;
        at = next + 1;
    }
    return {numbers[0], numbers[1], numbers[2]};
}

const MachineFacts& liveMachineFacts() {
    static const LiveMachineFacts facts;
    return facts;
}

LiveMachineFacts::LiveMachineFacts(MachineFactPaths paths) : paths_(std::move(paths)) {}

std::optional<std::string> LiveMachineFacts::serialNumber() const {
    if (auto serial = firstLine(paths_.productSerial); serial && !isPlaceholderSerial(*serial)) {
        return serial;
    }
    // systemd writes "uninitialized" there until the first boot has finished.
    const auto machineId = firstLine(paths_.machineId);
    if (!machineId || *machineId == "uninitialized") return std::nullopt;
    return keyedMachineId(*machineId);
}

std::optional<std::string> LiveMachineFacts::machineName() const {
    return firstLine(paths_.productName);
}

MachineFacts::Release LiveMachineFacts::systemRelease() const {
    struct utsname names {};
    if (::uname(&names) != 0) return {};
    return releaseNumbers(names.release);
}

}  // namespace kora
