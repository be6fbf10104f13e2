#include <string>

#include "registry/kora_db.h"

namespace kora {

std::string KoraDB::MachineUID(const MachineFacts& facts) {
    return facts.serialNumber().value_or("");
}

std::string KoraDB::MachineModel(const MachineFacts& facts) {
    return facts.machineName().value_or("mac");
}

KoraDB::OptionalString KoraDB::OperatingSystem(const MachineFacts& facts) {
    // The major number is not consulted: the names follow the minor one alone.
    switch (facts.systemRelease().minor.value_or(0)) {
        case 5: return "OSXLeopard";
        case 6: return "OSXSnowLeopard";
        case 7: return "OSXLion";
        default: return std::nullopt;
    }
}

std::string KoraDB::OSEdition(const MachineFacts& facts) {
    const MachineFacts::Release release = facts.systemRelease();
    return std::to_string(release.major.value_or(0)) + "." +
           std::to_string(release.minor.value_or(0));
}

std::int32_t KoraDB::ServicePack(const MachineFacts& facts) {
    return facts.systemRelease().bugFix.value_or(0);
}

}  // namespace kora
