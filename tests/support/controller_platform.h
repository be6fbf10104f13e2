#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "controller/kora_controller_settings.h"
#include "platform/clock.h"
#include "platform/machine_facts.h"
#include "support/installer_fixture.h"
#include "update/kora_installer.h"

namespace kora::test {

// A clock that stands still until the test moves it.
struct FakeClock : Clock {
    Date time = dateFromUnixSeconds(1'700'000'000);
    Date now() const override { return time; }
};

// A machine whose facts the test sets; counts how often it is asked.
struct FakeMachineFacts : MachineFacts {
    std::optional<std::string> serial = "SERIAL-1";
    std::optional<std::string> name = "ThinkPad X1";
    Release release{10, 6, 8};
    mutable int asked = 0;

    std::optional<std::string> serialNumber() const override {
        ++asked;
        return serial;
    }
    std::optional<std::string> machineName() const override { return name; }
    Release systemRelease() const override { return release; }
};

// The device fields every request carries on the FakeMachineFacts machine,
// for an application registered with productID, brand "B" and `version`.
template <typename Record>
Record expectedRequest(const std::string& productID, const std::string& version) {
    Record record;
    record.setProductID(productID);
    record.setHardwareUUID("SERIAL-1");
    for (auto set : {&Record::setUsername, &Record::setMobileNo, &Record::setCustomerNo,
                     &Record::setOSArchitecture, &Record::setSystemArchitecture}) {
        (record.*set)("");
    }
    record.setOperatingSystem("OSXSnowLeopard");
    record.setOSEdition("10.6");
    record.setServicePack(8);
    record.setSystemType("ThinkPad X1");
    record.setRegion("Europe");
    record.setCountry("FI");
    record.setBrand("B");
    record.setVersion(version);
    record.setAdditionalInfo("Status=INSTALLED;");
    return record;
}

// What a controller is handed besides its settings, for a test: the fake
// clock and machine facts, and an installer on folders under `root` whose
// network is up until the test says otherwise.
class ControllerPlatform {
  public:
    explicit ControllerPlatform(const std::filesystem::path& root)
        : installer_(services_.context(
              {.registryFile = root / "com.olvara.korad.plist",
               .applications = (root / "Applications").string(),
               .tmp = (root / "tmp").string(),
               .jobFile = (root / "LaunchDaemons/%@.plist").string(),
               .installedExecutable = (root / "PrivilegedHelperTools/%@").string(),
               .users = root / "Users"},
              preferences_)) {
        network.flags = Reachability::Flags{.reachable = true};
    }

    KoraInstaller& installer() { return installer_; }
    // The settings of a controller on `registry`, with this platform's clock
    // and machine facts and one tick an hour (tests call checkSequence).
    KoraControllerSettings settings(const std::filesystem::path& registry) const {
        KoraControllerSettings settings;
        settings.configPath = registry;
        settings.preferencesFolder = registry.parent_path() / "Preferences";
        settings.workspace = std::make_shared<LiveWorkspace>(registry.parent_path() / "Applications");
        settings.tickInterval = std::chrono::hours(1);
        settings.clock = clock;
        settings.machineFacts = facts;
        settings.downloadFolder = registry.parent_path() / "downloads";
        return settings;
    }
    void setNetworkUp(bool up) { network.flags->reachable = up; }

  private:
    InstallerServices services_;
    LiveUserPreferences preferences_;
    KoraInstaller installer_;

  public:
    std::shared_ptr<FakeClock> clock = std::make_shared<FakeClock>();
    std::shared_ptr<FakeMachineFacts> facts = std::make_shared<FakeMachineFacts>();
    FakeReachability& network = services_.reachability;
};

}  // namespace kora::test
