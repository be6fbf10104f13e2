#pragma once

#include <gio/gio.h>

#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "platform/korad_interface.h"

namespace kora {

// Why a call did not get its answer: no bus, no daemon on it, no reply in
// time, or an error the daemon sent back. The message says which, for people.
class KoraClientError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// A client application's handle on the daemon: one method per operation of
// com.olvara.Korad on the system bus. An absent string (std::nullopt) differs
// from an empty one and travels as such.
//
// Calls block until the daemon answers (at most kCallReplyTimeout), so do not
// call from a thread that must itself turn the daemon's main loop. Every
// method throws KoraClientError when the call fails.
class KoraClient {
  public:
    using OptionalString = kora::OptionalString;

    // How long a call waits for its answer. A call that makes the daemon
    // notify the update service (uninstall) may take up to the exchange
    // deadline of 60 s, and one that arrives while the daemon waits so is
    // served in that wait, which cannot end before the inner call has: twice
    // the deadline covers both. The bus's default of 25 s covers neither.
    static constexpr std::chrono::milliseconds kCallReplyTimeout = std::chrono::seconds(120);

    // Connects to the bus at `busAddress`, or to the system bus (the one
    // DBUS_SYSTEM_BUS_ADDRESS names, if set) when none is given.
    explicit KoraClient(const std::optional<std::string>& busAddress = std::nullopt);
    ~KoraClient();

    KoraClient(const KoraClient&) = delete;
    KoraClient& operator=(const KoraClient&) = delete;

    bool registerClientWith(const ApplicationRegistration& registration);
    bool updateClient(const OptionalString& identifier, const OptionalString& bundlePath,
                      const OptionalString& version);
    bool setRoaming(bool roaming);
    void forceCheck();
    bool uninstall(const OptionalString& identifier);
    OptionalString registerApplicationWithIdentifier(
        const OptionalString& identifier, const OptionalString& iccid, const OptionalString& imsi,
        const OptionalString& wlanMac, const OptionalString& mobileMac,
        const OptionalString& software, const OptionalString& previousVersion,
        const OptionalString& appBrand, const OptionalString& bundlePath);
    OptionalString echo(const OptionalString& text);

  private:
    // Sends one call and returns its reply, whose type GDBus has checked
    // against the interface table.
    GVariant* call(KoradMember member, GVariant* arguments);
    bool callForBoolean(KoradMember member, GVariant* arguments);
    OptionalString callForString(KoradMember member, GVariant* arguments);

    std::unique_ptr<GDBusConnection, decltype(&g_object_unref)> connection_;
};

}  // namespace kora
