#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "platform/date.h"
#include "platform/file_download.h"
#include "platform/property_list.h"

namespace kora {

class KoraInstaller;
class KoraUpdateDelegate;
class SelfUpdateHelper;

// One update the service offered for one registered application: the
// service's description of it, the progress flags the check sequence steers
// by, and a wait-until date. The registry owns updates through shared
// pointers; the delegate (the controller) is not owned.
//
// Accessors return copies: the daemon serves client calls while it waits for
// the service, so a field may be replaced while a caller still uses its value.
class KoraUpdate : public std::enable_shared_from_this<KoraUpdate>, private FileDownloadDelegate {
  public:
    using OptionalString = std::optional<std::string>;

    // Every string absent, all flags false, wait-until date the epoch, so a new
    // update is not postponed.
    KoraUpdate();
    // Builds the update from its stored form (see serialize).
    explicit KoraUpdate(const PlistDictionary& dictionary);

    // The stored form kept under "UpdateDB" in the registry file. Absent fields
    // produce no key; the two completion flags are always written. The running
    // state (started flags, download, delegate) is not stored.
    PlistDictionary serialize() const;

    // Holds the update back for `hours` from `now`, replacing any earlier wait.
    // Stores nothing: the caller stores the update through the registry.
    void postponeHours(std::int32_t hours, Date now);
    void postponeHours(std::int32_t hours);
    // True unless the wait-until date lies strictly in the past, to the second;
    // also true when the date is absent (an unreadable stored text).
    bool shouldPostpone(Date now) const;
    bool shouldPostpone() const;

    // Starts downloading `downloadLocation` into the download folder and
    // returns hasStartedDownload. Without a location it starts nothing. The
    // outcome reaches the delegate later, on the main loop: downloadErrorOn or
    // downloadDidFinishFor, exactly once, unless the download is cancelled.
    bool startDownload();
    // Both stop a running download; no callback follows. A later
    // startDownload begins again from the start. Without a download, nothing.
    void pauseDownload();
    void cancelDownload();
    // Where archives are written: "/tmp/" unless a test points it elsewhere.
    // Running state, not stored.
    void setDownloadFolder(std::filesystem::path folder) { downloadFolder_ = std::move(folder); }
    const std::filesystem::path& downloadFolder() const { return downloadFolder_; }
    // When a stalled or crawling download ends as timed out. Running state,
    // not stored.
    void setDownloadLimits(const FileDownloadLimits& limits) { downloadLimits_ = limits; }

    // Installs the downloaded archive and returns when everything is done:
    // checks it against `hash` (letter case aside), stops the application for
    // "-restart", unpacks the archive beside itself and runs the "Actions" of
    // its "update.plist" through `installer` until one fails. Then it tells the
    // delegate the outcome, marks the installation complete, removes the
    // archive, starts the application again for "-restart", and either removes
    // the unpacked folder or, when a successful script asked for it, hands the
    // new daemon executable to `helper` (may be null: then the folder stays).
    // A digest mismatch only tells the delegate: nothing is unpacked or removed.
    void startInstallation(KoraInstaller& installer, SelfUpdateHelper* helper);

    OptionalString identifier() const { return identifier_; }
    void setIdentifier(OptionalString value) { identifier_ = std::move(value); }
    OptionalString updateId() const { return updateId_; }
    void setUpdateId(OptionalString value) { updateId_ = std::move(value); }
    OptionalString name() const { return name_; }
    void setName(OptionalString value) { name_ = std::move(value); }
    OptionalString description() const { return description_; }
    void setDescription(OptionalString value) { description_ = std::move(value); }
    OptionalString downloadLocation() const { return downloadLocation_; }
    void setDownloadLocation(OptionalString value) { downloadLocation_ = std::move(value); }
    OptionalString versionTo() const { return versionTo_; }
    void setVersionTo(OptionalString value) { versionTo_ = std::move(value); }
    OptionalString size() const { return size_; }
    void setSize(OptionalString value) { size_ = std::move(value); }
    OptionalString provider() const { return provider_; }
    void setProvider(OptionalString value) { provider_ = std::move(value); }
    OptionalString parameters() const { return parameters_; }
    void setParameters(OptionalString value) { parameters_ = std::move(value); }
    OptionalString hash() const { return hash_; }
    void setHash(OptionalString value) { hash_ = std::move(value); }
    OptionalString signedName() const { return signedName_; }
    void setSignedName(OptionalString value) { signedName_ = std::move(value); }
    OptionalString updateType() const { return updateType_; }
    void setUpdateType(OptionalString value) { updateType_ = std::move(value); }
    OptionalString guiTitle() const { return guiTitle_; }
    void setGuiTitle(OptionalString value) { guiTitle_ = std::move(value); }
    OptionalString guiDescription() const { return guiDescription_; }
    void setGuiDescription(OptionalString value) { guiDescription_ = std::move(value); }
    OptionalString guiReleaseNotes() const { return guiReleaseNotes_; }
    void setGuiReleaseNotes(OptionalString value) { guiReleaseNotes_ = std::move(value); }
    OptionalString localFilePath() const { return localFilePath_; }
    void setLocalFilePath(OptionalString value) { localFilePath_ = std::move(value); }
    std::optional<Date> waitUntilDate() const { return waitUntilDate_; }
    void setWaitUntilDate(std::optional<Date> value) { waitUntilDate_ = value; }

    bool installationComplete() const { return installationComplete_; }
    void setInstallationComplete(bool value) { installationComplete_ = value; }
    bool downloadComplete() const { return downloadComplete_; }
    void setDownloadComplete(bool value) { downloadComplete_ = value; }
    bool hasStartedDownload() const { return hasStartedDownload_; }
    void setHasStartedDownload(bool value) { hasStartedDownload_ = value; }
    bool hasStartedInstallation() const { return hasStartedInstallation_; }
    void setHasStartedInstallation(bool value) { hasStartedInstallation_ = value; }

    // Kept for the record's shape; nothing fills it.
    std::optional<PlistValue::Data> receivedData() const { return receivedData_; }
    void setReceivedData(std::optional<PlistValue::Data> value) {
        receivedData_ = std::move(value);
    }

    KoraUpdateDelegate* delegate() const { return delegate_; }
    void setDelegate(KoraUpdateDelegate* delegate) { delegate_ = delegate; }

  private:
    friend struct KoraUpdateStringKeys;

    // What the delegate is handed: the update itself, kept alive while the
    // delegate may drop it from the registry. An update nobody shares is
    // passed as is.
    std::shared_ptr<KoraUpdate> selfForDelegate();

    // The download's callbacks, on the main loop.
    FileDownloadDestination decideDestination(const std::string& suggestedName) override;
    void didFailWithError(const FileDownloadError& error) override;
    void downloadDidFinish() override;

    bool archiveMatchesHash(const KoraInstaller& installer) const;
    std::optional<PlistDictionary> unpackScript(KoraInstaller& installer) const;
    void updateSelf(KoraInstaller& installer, SelfUpdateHelper* helper,
                    const PlistDictionary& script) const;
    static void cleanUpInstallation(const std::string& archive);

    OptionalString identifier_;
    OptionalString updateId_;
    OptionalString name_;
    OptionalString description_;
    OptionalString downloadLocation_;
    OptionalString versionTo_;
    OptionalString size_;
    OptionalString provider_;
    OptionalString parameters_;
    OptionalString hash_;
    OptionalString signedName_;
    OptionalString updateType_;
    OptionalString guiTitle_;
    OptionalString guiDescription_;
    OptionalString guiReleaseNotes_;
    OptionalString localFilePath_;
    std::optional<Date> waitUntilDate_{kEpoch};
    bool installationComplete_ = false;
    bool downloadComplete_ = false;
    bool hasStartedDownload_ = false;
    bool hasStartedInstallation_ = false;
    std::optional<PlistValue::Data> receivedData_;
    KoraUpdateDelegate* delegate_ = nullptr;
    std::filesystem::path downloadFolder_ = "/tmp/";
    FileDownloadLimits downloadLimits_;
    // Last, so that it goes first: a dying update cancels its download before
    // anything the download could call back into is gone.
    std::unique_ptr<FileDownload> connection_;
};

}  // namespace kora
