#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace kora {

// What the machine tells about itself, for the identity sent with every
// request to the update service. Each call asks afresh; nothing is cached.
class MachineFacts {
  public:
    // The leading numbers of the running system's release; a number that
    // cannot be read is none.
    struct Release {
        std::optional<int> major;
        std::optional<int> minor;
        std::optional<int> bugFix;
        bool operator==(const Release&) const = default;
    };

    virtual ~MachineFacts() = default;

    // A text that identifies this machine; none when the machine has none.
    virtual std::optional<std::string> serialNumber() const = 0;
    // The user-visible model name; none when it cannot be read or is empty.
    virtual std::optional<std::string> machineName() const = 0;
    virtual Release systemRelease() const = 0;
};

// Where the live facts are read; tests point them at temporary files.
struct MachineFactPaths {
    std::filesystem::path productSerial = "/sys/class/dmi/id/product_serial";
    std::filesystem::path machineId = "/etc/machine-id";
    std::filesystem::path productName = "/sys/class/dmi/id/product_name";
};

// The Linux realisation:
//   - serial number: the DMI product serial, unless firmware left a
//     placeholder there ("To be filled by O.E.M.", "Default string", all
//     zeros and the like), which thousands of machines share; then a keyed
//     hash of "/etc/machine-id", so the raw machine id, which systemd asks
//     programs to keep private, never leaves the machine; none when neither
//     can be read (the product serial is readable by root only).
//   - machine name: the DMI product name, none when unreadable or empty.
//   - release: the leading numbers of the kernel release (`uname -r`).
class LiveMachineFacts final : public MachineFacts {
  public:
    explicit LiveMachineFacts(MachineFactPaths paths = {});

    std::optional<std::string> serialNumber() const override;
    std::optional<std::string> machineName() const override;
    Release systemRelease() const override;

  private:
    MachineFactPaths paths_;
};

// The live facts of this machine, for callers that are not handed others.
const MachineFacts& liveMachineFacts();

// The first three dot-separated numbers at the start of a release text such
// as "6.1.0-18-amd64"; reading stops at the first part that is not a number.
MachineFacts::Release releaseNumbers(std::string_view release);

// Whether a DMI serial is one of the texts firmware writes when the maker
// filled in nothing.
bool isPlaceholderSerial(std::string_view serial);

}  // namespace kora
