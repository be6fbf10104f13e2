#pragma once

#include <filesystem>
#include <memory>
#include <mutex>

#include "controller/kora_api.h"
#include "controller/kora_controller_settings.h"
#include "messages/update_service.h"
#include "platform/date.h"
#include "platform/self_update_helper.h"
#include "registry/kora_db.h"
#include "registry/registry_file.h"
#include "update/kora_installer.h"
#include "update/kora_update_delegate.h"

namespace kora {

// The object the daemon vends to client applications. It owns the registry,
// drives the check sequence from a repeating timer on the default GLib main
// context, and is the delegate of every update.
//
// Everything runs on the main loop's thread. The daemon serves client calls
// while it waits for the service, so no lock is held across anything that can
// turn the main loop.
class KoraController : public VendedController, public KoraUpdateDelegate {
  public:
    // Every exchange with the service goes through `service`. `installer` runs
    // the installations and tells whether the network is up; `selfUpdateHelper`
    // (may be null) takes over a new daemon executable. All three must outlive
    // the controller.
    KoraController(KoraControllerSettings settings, UpdateService& service,
                   KoraInstaller& installer, SelfUpdateHelper* selfUpdateHelper = nullptr);
    // Removes the timer; the registry writes its application section.
    ~KoraController() override;

    KoraController(const KoraController&) = delete;
    KoraController& operator=(const KoraController&) = delete;

    // Client operations. Every one answers as documented whatever happened.
    bool registerClientWith(const OptionalString& identifier, const OptionalString& installationID,
                            const OptionalString& productID, const OptionalString& appVersion,
                            const OptionalString& bundlePath,
                            const OptionalString& appBrand) override;
    bool updateClient(const OptionalString& identifier, const OptionalString& bundlePath,
                      const OptionalString& version) override;
    bool setRoaming(bool roaming) override;
    void forceCheck() override;
    bool uninstall(const OptionalString& identifier) override;
    OptionalString registerApplicationWithIdentifier(
        const OptionalString& identifier, const OptionalString& iccid, const OptionalString& imsi,
        const OptionalString& wlanMac, const OptionalString& mobileMac,
        const OptionalString& software, const OptionalString& previousVersion,
        const OptionalString& appBrand, const OptionalString& bundlePath) override;
    OptionalString echo(const OptionalString& text) override;

    // Outcomes reported by updates.
    void downloadErrorOn(const std::shared_ptr<KoraUpdate>& update) override;
    void downloadDidFinishFor(const std::shared_ptr<KoraUpdate>& update) override;
    void installationErrorOn(const std::shared_ptr<KoraUpdate>& update) override;
    void installationDidFinishFor(const std::shared_ptr<KoraUpdate>& update) override;

    // One timer tick.
    void checkSequence();

    // SIGTERM: every service exchange in flight ends at once as cancelled and
    // every later one fails without being sent (UpdateService::cancelAll), so
    // whatever waits on the service returns and the main loop can quit. From then on
    // shuttingDown() is true. A check for updates whose exchanges were cut
    // short this way has not completed: "LastKoraCheckDate" stays as it was,
    // so the next start checks again.
    void beginShutdown();
    bool shuttingDown() const { return shuttingDown_; }

    // When the last check for updates finished, and when the hourly step last
    // ran; the epoch when it has not happened yet.
    Date dateSinceLastCheck() const;
    Date lastUpdate() const;
    bool isModemRoaming() const { return isModemRoaming_; }
    KoraDB& db() { return *db_; }
    const std::filesystem::path& configPath() const { return configPath_; }

  private:
    // Makes a client's change to one application and writes the registry. When
    // the file would outgrow its cap, the record is put back as it was: false.
    template <typename Change>
    bool changeApplication(const OptionalString& identifier, Change change);
    void runHourlyStep();
    // Asks the service about every registered application; records the check
    // unless shutdown cut it short.
    void checkForUpdates();
    void checkApplication(const std::string& identifier, const KoraApplication& application);
    void takeOffer(const std::string& identifier, const KORA_CheckResponse& response);
    void recordCompletedCheck();
    void driveUpdatesInProgress();
    void driveUpdate(const std::shared_ptr<KoraUpdate>& update);
    // Stores the update under its own identifier.
    void store(const std::shared_ptr<KoraUpdate>& update);
    // Sends the notice about `update` built for the operation `send`, after
    // its new state has been stored.
    template <typename Notice, typename Response>
    void notify(const KoraUpdate& update,
                ServiceReply<Response> (UpdateService::*send)(const Notice&));
    void setLastUpdate(Date date);

    Date dateSinceLastCheck_;
    Date lastUpdate_;
    unsigned timer_ = 0;  // GLib source id
    mutable std::mutex mainThreadLock_;
    std::filesystem::path configPath_;
    bool isModemRoaming_ = false;
    bool shuttingDown_ = false;
    UpdateService& service_;
    KoraInstaller& installer_;
    SelfUpdateHelper* selfUpdateHelper_;
    std::shared_ptr<const Clock> clock_;
    std::shared_ptr<const MachineFacts> machineFacts_;
    std::filesystem::path downloadFolder_;
    // Writes "LastKoraCheckDate"; the registry writes its own keys beside it.
    RegistryFile checkDateFile_;
    std::shared_ptr<const Workspace> workspace_;  // outlives db_
    std::unique_ptr<KoraDB> db_;
};

}  // namespace kora
