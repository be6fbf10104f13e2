#pragma once

#include "platform/property_list.h"

namespace kora {

class KoraInstaller;
class KoraUpdate;

// What running a script's "Actions" came to.
struct ScriptOutcome {
    bool succeeded = true;
    // An "updateself" action ran: on success the daemon's executable is handed
    // to the self-update helper.
    bool selfUpdate = false;
};

// Runs the actions in order through the installer until one fails. `actions`
// is the script's "Actions" value, or null when the script has none.
ScriptOutcome runInstallActions(const PlistValue* actions, KoraInstaller& installer,
                                const KoraUpdate& update);

}  // namespace kora
