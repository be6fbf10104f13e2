#pragma once

#include <gio/gio.h>

#include <functional>
#include <optional>
#include <string>

namespace kora {

// Called once with no value when systemd took the restart job, or with the
// error's text.
using RestartDone = std::function<void(const std::optional<std::string>& error)>;

// Asks systemd's manager on `bus` to restart `unit` (job mode "replace"),
// without blocking. `done` is not called when `cancellable` is cancelled first.
void restartUnit(GDBusConnection* bus, const std::string& unit, GCancellable* cancellable,
                 RestartDone done);

}  // namespace kora
