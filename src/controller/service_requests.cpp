#include "controller/service_requests.h"

#include <type_traits>

#include "dates/stored_date.h"
#include "registry/kora_db.h"

namespace kora {
namespace {

void fillDevice(KoraDeviceFields& fields, const KoraApplication* application,
                const MachineFacts& facts) {
    if (application != nullptr) {
        fields.setProductID(application->productID());
        fields.setBrand(application->brand());
        fields.setVersion(application->lastKnownVersion());
    }
    fields.setHardwareUUID(KoraDB::MachineUID(facts));
    fields.setUsername("");
    fields.setMobileNo("");
    fields.setCustomerNo("");
    fields.setOperatingSystem(KoraDB::OperatingSystem(facts));
    fields.setOSEdition(KoraDB::OSEdition(facts));
    fields.setServicePack(KoraDB::ServicePack(facts));
    fields.setOSArchitecture("");
    fields.setSystemType(KoraDB::MachineModel(facts));
    fields.setSystemArchitecture("");
    fields.setRegion(kRegionSent);
    fields.setCountry(kCountrySent);
    fields.setAdditionalInfo(kAdditionalInfoSent);
}

bool present(const std::optional<std::string>& text) {
    return text && !text->empty();
}

}  // namespace

KORA_Check checkRequestFor(const KoraApplication& application, const MachineFacts& facts) {
    KORA_Check request;
    request.setInstallationID(application.installationID());
    fillDevice(request, &application, facts);
    return request;
}

template <typename Notice>
Notice noticeFor(const KoraUpdate& update, const KoraApplication* application,
                 const MachineFacts& facts, const Clock& clock) {
    Notice notice;
    if (application != nullptr) notice.setInstallationID(application->installationID());
    notice.setUpdateID(update.updateId());
    fillDevice(notice, application, facts);
    notice.setStartTime(storedDateText(clock.now()));
    if constexpr (std::is_base_of_v<KoraCompleteNoticeFields, Notice>) {
        notice.setFinishTime(storedDateText(clock.now()));
    }
    return notice;
}

template KORA_DownloadError noticeFor(const KoraUpdate&, const KoraApplication*,
                                      const MachineFacts&, const Clock&);
template KORA_DownloadComplete noticeFor(const KoraUpdate&, const KoraApplication*,
                                         const MachineFacts&, const Clock&);
template KORA_InstallError noticeFor(const KoraUpdate&, const KoraApplication*,
                                     const MachineFacts&, const Clock&);
template KORA_InstallComplete noticeFor(const KoraUpdate&, const KoraApplication*,
                                        const MachineFacts&, const Clock&);

Offer updateFromOffer(const std::string& identifier, const KORA_CheckResponse& response) {
    const std::optional<KORA_cUpdate>& offer = response.CheckResult();
    // A reply without a result, or a result without an identifier, offers
    // nothing, as the all-zero identifier does. The comparison with that
    // identifier is exact: the service writes it in this form.
    if (!offer || !present(offer->UpdateID()) || *offer->UpdateID() == KoraDB::kZeroIdentifier) {
        return {nullptr, "The update from KORA did not have a valid ID"};
    }
    // Stored, such an update would wait for a download that can never start,
    // and keep its application from every later offer.
    if (!present(offer->Location())) {
        return {nullptr, "The update from KORA did not have a download location"};
    }
    auto update = std::make_shared<KoraUpdate>();
    update->setIdentifier(identifier);
    update->setUpdateId(offer->UpdateID());
    update->setName(offer->Name());
    update->setDescription(offer->Description());
    update->setDownloadLocation(offer->Location());
    update->setVersionTo(offer->VersionTo());
    update->setSize(offer->Size_());
    update->setProvider(offer->Provider());
    update->setParameters(offer->Parameters());
    update->setHash(offer->Hash());
    update->setSignedName(offer->SignedName());
    update->setUpdateType(offer->UpdateType());
    update->setGuiTitle(offer->GuiTitle());
    update->setGuiDescription(offer->GuiDescription());
    update->setGuiReleaseNotes(offer->GuiReleaseNotes());
    return {update, ""};
}

}  // namespace kora
