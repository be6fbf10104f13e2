#pragma once

#include <gio/gio.h>

#include <chrono>
#include <memory>

#include "platform/self_update_helper.h"

namespace kora {

// The self-update helper as com.olvara.PellinHelper on the system bus.
//
// Every exchange is an asynchronous D-Bus call, waited for by turning the
// thread's default main context: the daemon keeps serving its own clients and
// timers meanwhile, and never blocks in a synchronous call.
class DBusSelfUpdateHelper : public SelfUpdateHelper {
  public:
    // The helper copies and flushes the new executable before it answers,
    // which takes seconds on a slow disk; a helper that has not answered in
    // this time has hung.
    static constexpr std::chrono::milliseconds kReplyTimeout{120'000};

    // On the system bus (the one DBUS_SYSTEM_BUS_ADDRESS names, if set),
    // connected on first use.
    DBusSelfUpdateHelper();
    // On `bus`, for tests, with another reply timeout.
    explicit DBusSelfUpdateHelper(GDBusConnection* bus,
                                  std::chrono::milliseconds replyTimeout = kReplyTimeout);

    // The name has an owner, or the bus can start it (it is activatable).
    bool present() override;
    bool installDaemonWithIdentifier(const std::optional<std::string>& identifier,
                                     const std::optional<std::string>& binary) override;

  private:
    GDBusConnection* bus();
    // The reply, of type `replyType`, or an exception with the error's text.
    GVariant* callAndWait(const char* destination, const char* path, const char* interface,
                          const char* member, GVariant* arguments, const char* replyType,
                          std::chrono::milliseconds timeout);
    bool nameHasOwner();
    bool nameIsActivatable();

    std::unique_ptr<GDBusConnection, decltype(&g_object_unref)> bus_;
    std::chrono::milliseconds replyTimeout_;
};

}  // namespace kora
