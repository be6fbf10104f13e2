#pragma once

#include <gio/gio.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "executable_replacement.h"

namespace kora {

struct HelperSettings {
    std::filesystem::path target;  // the daemon's executable
    std::string unit;              // the daemon's systemd unit
    std::chrono::milliseconds ownerWait;  // for the new daemon to own its bus name
    std::chrono::milliseconds idleExit;   // with no call and nothing under way
};

// Serves /com/olvara/PellinHelper, interface com.olvara.PellinHelper, with the one
// operation installDaemonWithIdentifier_andBinary(as identifier, as binary) -> b.
//
// Only root may call it; the bus policy says so, and the service checks the
// caller's user itself as well. A call with an identifier other than the
// daemon's, without a binary path, or with a file that is not the daemon's
// executable gets false and changes nothing. Otherwise the new file replaces
// the daemon's executable (the current one is kept as "<name>.old"), the call
// gets true, and then the daemon's unit is restarted through systemd. When no
// process comes to own com.olvara.Korad within the wait, the previous executable
// is put back and the unit restarted again. One replacement at a time: a call
// that comes while one is under way gets false.
class PellinHelperService {
  public:
    // Exports the object on `bus`. `idle` is called once nothing has happened for
    // settings.idleExit: no call, no replacement under way.
    PellinHelperService(GDBusConnection* bus, HelperSettings settings,
                        std::function<void()> idle);
    ~PellinHelperService();

    PellinHelperService(const PellinHelperService&) = delete;
    PellinHelperService& operator=(const PellinHelperService&) = delete;

  private:
    enum class Phase { Idle, CheckingCaller, WaitingForOwner, RollingBack };
    struct PendingCall;

    static void handleMethodCall(GDBusConnection* connection, const gchar* sender,
                                 const gchar* objectPath, const gchar* interfaceName,
                                 const gchar* methodName, GVariant* parameters,
                                 GDBusMethodInvocation* invocation, gpointer self);
    static void callerUserKnown(GObject* bus, GAsyncResult* result, gpointer pending);
    static void ownerAppeared(GDBusConnection*, const gchar*, const gchar* owner, gpointer self);
    static void ownerVanished(GDBusConnection*, const gchar*, gpointer self);
    static gboolean ownerWaitEnded(gpointer self);
    static gboolean idleTimeEnded(gpointer self);

    void receive(GDBusMethodInvocation* invocation, GVariant* parameters);
    void callerChecked(PendingCall& call, const std::optional<guint32>& user);
    bool replace(const std::optional<std::string>& identifier,
                 const std::optional<std::string>& binary);
    void watchForNewOwner();
    void ownerSeen(const char* owner);
    void rollBack(const std::string& reason);
    void stopWaiting();
    void becomeIdle();

    GDBusConnection* bus_;
    HelperSettings settings_;
    ExecutableReplacement replacement_;
    std::function<void()> idle_;
    GCancellable* cancellable_;
    GDBusNodeInfo* nodeInfo_ = nullptr;
    guint registrationId_ = 0;
    Phase phase_ = Phase::Idle;
    guint watchId_ = 0;
    guint ownerTimer_ = 0;
    guint idleTimer_ = 0;
    bool restartRequested_ = false;
    std::string previousOwner_;  // of com.olvara.Korad when the restart was asked
};

}  // namespace kora
