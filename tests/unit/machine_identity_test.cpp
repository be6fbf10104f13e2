#include <gtest/gtest.h>

#include <fstream>
#include <tuple>

#include "platform/machine_facts.h"
#include "registry/kora_db.h"
#include "support/controller_platform.h"
#include "support/temp_dir.h"

namespace kora {
namespace {

using Release = MachineFacts::Release;

// What the five identity operations make of the machine's facts.
TEST(MachineIdentity, MapsTheReleaseAndFallsBackWhereFactsAreMissing) {
    struct Row {
        Release release;
        std::optional<std::string> operatingSystem;
        std::string edition;
        std::int32_t servicePack;
    };
    const Row rows[] = {
        {{10, 5, 8}, "OSXLeopard", "10.5", 8},
        {{10, 6, 0}, "OSXSnowLeopard", "10.6", 0},
        {{6, 7, 12}, "OSXLion", "6.7", 12},  // whatever the major number
        {{10, 8, 1}, std::nullopt, "10.8", 1},
        {{10, 4, 11}, std::nullopt, "10.4", 11},
        {{6, std::nullopt, std::nullopt}, std::nullopt, "6.0", 0},
        {{}, std::nullopt, "0.0", 0},
    };
    test::FakeMachineFacts facts;
    for (const Row& row : rows) {
        facts.release = row.release;
        EXPECT_EQ(std::tuple(KoraDB::OperatingSystem(facts), KoraDB::OSEdition(facts),
                             KoraDB::ServicePack(facts)),
                  std::tuple(row.operatingSystem, row.edition, row.servicePack))
            << row.edition;
    }
    EXPECT_EQ(std::tuple(KoraDB::MachineUID(facts), KoraDB::MachineModel(facts)),
              std::tuple("SERIAL-1", "ThinkPad X1"));
    facts.serial.reset();
    facts.name.reset();
    EXPECT_EQ(std::tuple(KoraDB::MachineUID(facts), KoraDB::MachineModel(facts)),
              std::tuple("", "mac"));
}

TEST(MachineFacts, ReadsTheLeadingNumbersOfTheKernelRelease) {
    const std::pair<const char*, Release> rows[] = {
        {"6.1.0-18-amd64", {6, 1, 0}},
        {"5.15.133.1-microsoft-standard-WSL2", {5, 15, 133}},
        {"6.8-rc1", {6, 8, std::nullopt}},
        {"7-custom", {7, std::nullopt, std::nullopt}},
        {"4.19", {4, 19, std::nullopt}},
        {"", {}},
        {"x.1.2", {}},
        {"99999999999.1.2", {}},  // out of range: no number
    };
    for (const auto& [text, release] : rows) EXPECT_EQ(releaseNumbers(text), release) << text;
    EXPECT_TRUE(liveMachineFacts().systemRelease().major.has_value());
}

TEST(MachineFacts, PassesOverFirmwarePlaceholdersForTheMachineId) {
    for (const char* placeholder : {"To be filled by O.E.M.", "Default string", "0000000000",
                                    "00000000-0000-0000-0000-000000000000", " not specified ",
                                    "System Serial Number"}) {
        EXPECT_TRUE(isPlaceholderSerial(placeholder)) << placeholder;
    }
    for (const char* serial : {"PF2ABCDE", "0000000001", "C02XK0AAJG5H"}) {
        EXPECT_FALSE(isPlaceholderSerial(serial)) << serial;
    }

    TempDir temp;
    const MachineFactPaths paths{temp.path() / "product_serial", temp.path() / "machine-id",
                                 temp.path() / "product_name"};
    const LiveMachineFacts facts(paths);
    EXPECT_EQ(facts.serialNumber(), std::nullopt);
    EXPECT_EQ(facts.machineName(), std::nullopt);

    const std::string machineId = "0123456789abcdef0123456789abcdef";
    std::ofstream(paths.machineId) << machineId << "\n";
    std::ofstream(paths.productSerial) << "To be filled by O.E.M.\n";
    std::ofstream(paths.productName) << "\n";
    const auto fromMachineId = facts.serialNumber();
    ASSERT_TRUE(fromMachineId);
    EXPECT_EQ(fromMachineId->size(), 32u);
    EXPECT_NE(*fromMachineId, machineId) << "the machine id itself never leaves the machine";
    EXPECT_EQ(facts.serialNumber(), fromMachineId) << "stable from call to call";
    EXPECT_EQ(facts.machineName(), std::nullopt);

    std::ofstream(paths.productSerial) << "PF2ABCDE\n";
    std::ofstream(paths.productName) << "ThinkPad X1 Carbon\n";
    EXPECT_EQ(facts.serialNumber(), "PF2ABCDE") << "asked afresh, nothing cached";
    EXPECT_EQ(facts.machineName(), "ThinkPad X1 Carbon");
}

}  // namespace
}  // namespace kora
