#pragma once

// The request records: a Check, the six notices of an update's progress and
// an Uninstall, with the field groups they share.

#include <optional>
#include <string>
#include <vector>

#include "messages/kora_record.h"

namespace kora {

// The description of the device, from ProductID on, that a Check and every
// notice carry: a Check right after InstallationID, a notice after UpdateID.
class KoraDeviceFields {
  public:
    const OptionalText& ProductID() const { return m_ProductID; }
    void setProductID(OptionalText value) { m_ProductID = std::move(value); }
    const OptionalText& HardwareUUID() const { return m_HardwareUUID; }
    void setHardwareUUID(OptionalText value) { m_HardwareUUID = std::move(value); }
    const OptionalText& Username() const { return m_Username; }
    void setUsername(OptionalText value) { m_Username = std::move(value); }
    const OptionalText& MobileNo() const { return m_MobileNo; }
    void setMobileNo(OptionalText value) { m_MobileNo = std::move(value); }
    const OptionalText& CustomerNo() const { return m_CustomerNo; }
    void setCustomerNo(OptionalText value) { m_CustomerNo = std::move(value); }
    const OptionalText& OperatingSystem() const { return m_OperatingSystem; }
    void setOperatingSystem(OptionalText value) { m_OperatingSystem = std::move(value); }
    const OptionalText& OSEdition() const { return m_OSEdition; }
    void setOSEdition(OptionalText value) { m_OSEdition = std::move(value); }
    const OptionalNumber& ServicePack() const { return m_ServicePack; }
    void setServicePack(OptionalNumber value) { m_ServicePack = std::move(value); }
    const OptionalText& OSArchitecture() const { return m_OSArchitecture; }
    void setOSArchitecture(OptionalText value) { m_OSArchitecture = std::move(value); }
    const OptionalText& SystemType() const { return m_SystemType; }
    void setSystemType(OptionalText value) { m_SystemType = std::move(value); }
    const OptionalText& SystemArchitecture() const { return m_SystemArchitecture; }
    void setSystemArchitecture(OptionalText value) { m_SystemArchitecture = std::move(value); }
    const OptionalText& Region() const { return m_Region; }
    void setRegion(OptionalText value) { m_Region = std::move(value); }
    const OptionalText& Country() const { return m_Country; }
    void setCountry(OptionalText value) { m_Country = std::move(value); }
    const OptionalText& Brand() const { return m_Brand; }
    void setBrand(OptionalText value) { m_Brand = std::move(value); }
    const OptionalText& Version() const { return m_Version; }
    void setVersion(OptionalText value) { m_Version = std::move(value); }
    const OptionalText& AdditionalInfo() const { return m_AdditionalInfo; }
    void setAdditionalInfo(OptionalText value) { m_AdditionalInfo = std::move(value); }

    bool operator==(const KoraDeviceFields&) const = default;

  protected:
    // The rows of these fields in wire order, for the table of `Record`.
    template <typename Record>
    static std::vector<FieldSpec> deviceRows() {
        return {
            textField<Record, &KoraDeviceFields::m_ProductID>("ProductID"),
            textField<Record, &KoraDeviceFields::m_HardwareUUID>("HardwareUUID"),
            textField<Record, &KoraDeviceFields::m_Username>("Username"),
            textField<Record, &KoraDeviceFields::m_MobileNo>("MobileNo"),
            textField<Record, &KoraDeviceFields::m_CustomerNo>("CustomerNo"),
            textField<Record, &KoraDeviceFields::m_OperatingSystem>("OperatingSystem"),
            textField<Record, &KoraDeviceFields::m_OSEdition>("OSEdition"),
            numberField<Record, &KoraDeviceFields::m_ServicePack>("ServicePack"),
            textField<Record, &KoraDeviceFields::m_OSArchitecture>("OSArchitecture"),
            textField<Record, &KoraDeviceFields::m_SystemType>("SystemType"),
            textField<Record, &KoraDeviceFields::m_SystemArchitecture>("SystemArchitecture"),
            textField<Record, &KoraDeviceFields::m_Region>("Region"),
            textField<Record, &KoraDeviceFields::m_Country>("Country"),
            textField<Record, &KoraDeviceFields::m_Brand>("Brand"),
            textField<Record, &KoraDeviceFields::m_Version>("Version"),
            textField<Record, &KoraDeviceFields::m_AdditionalInfo>("AdditionalInfo"),
        };
    }

  private:
    OptionalText m_ProductID;
    OptionalText m_HardwareUUID;
    OptionalText m_Username;
    OptionalText m_MobileNo;
    OptionalText m_CustomerNo;
    OptionalText m_OperatingSystem;
    OptionalText m_OSEdition;
    OptionalNumber m_ServicePack;
    OptionalText m_OSArchitecture;
    OptionalText m_SystemType;
    OptionalText m_SystemArchitecture;
    OptionalText m_Region;
    OptionalText m_Country;
    OptionalText m_Brand;
    OptionalText m_Version;
    OptionalText m_AdditionalInfo;
};

// What every notice of an update's progress carries: InstallationID, UpdateID,
// the device description and StartTime, in that order on the wire.
class KoraNoticeFields : public KoraDeviceFields {
  public:
    const OptionalText& InstallationID() const { return m_InstallationID; }
    void setInstallationID(OptionalText value) { m_InstallationID = std::move(value); }
    const OptionalText& UpdateID() const { return m_UpdateID; }
    void setUpdateID(OptionalText value) { m_UpdateID = std::move(value); }
    const OptionalText& StartTime() const { return m_StartTime; }
    void setStartTime(OptionalText value) { m_StartTime = std::move(value); }

    bool operator==(const KoraNoticeFields&) const = default;

  protected:
    template <typename Record>
    static std::vector<FieldSpec> noticeRows() {
        std::vector<FieldSpec> rows{
            textField<Record, &KoraNoticeFields::m_InstallationID>("InstallationID"),
            textField<Record, &KoraNoticeFields::m_UpdateID>("UpdateID"),
        };
        const std::vector<FieldSpec> device = deviceRows<Record>();
        rows.insert(rows.end(), device.begin(), device.end());
        rows.push_back(textField<Record, &KoraNoticeFields::m_StartTime>("StartTime"));
        return rows;
    }

  private:
    OptionalText m_InstallationID;
    OptionalText m_UpdateID;
    OptionalText m_StartTime;
};

// A failed download or installation: when, and why.
class KoraErrorNoticeFields : public KoraNoticeFields {
  public:
    const OptionalText& ErrorTime() const { return m_ErrorTime; }
    void setErrorTime(OptionalText value) { m_ErrorTime = std::move(value); }
    const OptionalText& ErrorMessage() const { return m_ErrorMessage; }
    void setErrorMessage(OptionalText value) { m_ErrorMessage = std::move(value); }

    bool operator==(const KoraErrorNoticeFields&) const = default;

  protected:
    template <typename Record>
    static std::vector<FieldSpec> errorNoticeRows() {
        std::vector<FieldSpec> rows = noticeRows<Record>();
        rows.insert(rows.end(),
                    {
                        textField<Record, &KoraErrorNoticeFields::m_ErrorTime>("ErrorTime"),
                        textField<Record, &KoraErrorNoticeFields::m_ErrorMessage>("ErrorMessage"),
                    });
        return rows;
    }

  private:
    OptionalText m_ErrorTime;
    OptionalText m_ErrorMessage;
};

// A finished download or installation: when.
class KoraCompleteNoticeFields : public KoraNoticeFields {
  public:
    const OptionalText& FinishTime() const { return m_FinishTime; }
    void setFinishTime(OptionalText value) { m_FinishTime = std::move(value); }

    bool operator==(const KoraCompleteNoticeFields&) const = default;

  protected:
    template <typename Record>
    static std::vector<FieldSpec> completeNoticeRows() {
        std::vector<FieldSpec> rows = noticeRows<Record>();
        rows.insert(rows.end(),
                    {
                        textField<Record, &KoraCompleteNoticeFields::m_FinishTime>("FinishTime"),
                    });
        return rows;
    }

  private:
    OptionalText m_FinishTime;
};

// A cancelled download or installation: when, and why.
class KoraCancelNoticeFields : public KoraNoticeFields {
  public:
    const OptionalText& CancelTime() const { return m_CancelTime; }
    void setCancelTime(OptionalText value) { m_CancelTime = std::move(value); }
    const OptionalText& CancelMessage() const { return m_CancelMessage; }
    void setCancelMessage(OptionalText value) { m_CancelMessage = std::move(value); }

    bool operator==(const KoraCancelNoticeFields&) const = default;

  protected:
    template <typename Record>
    static std::vector<FieldSpec> cancelNoticeRows() {
        std::vector<FieldSpec> rows = noticeRows<Record>();
        rows.insert(
            rows.end(),
            {
                textField<Record, &KoraCancelNoticeFields::m_CancelTime>("CancelTime"),
                textField<Record, &KoraCancelNoticeFields::m_CancelMessage>("CancelMessage"),
            });
        return rows;
    }

  private:
    OptionalText m_CancelTime;
    OptionalText m_CancelMessage;
};

// The request of a Check: the installation and its device.
class KORA_Check final : public KoraRecordOf<KORA_Check>, public KoraDeviceFields {
  public:
    static constexpr std::string_view kXsiType = "KORA_Check";

    const OptionalText& InstallationID() const { return m_InstallationID; }
    void setInstallationID(OptionalText value) { m_InstallationID = std::move(value); }

    static const std::vector<FieldSpec>& fieldTable() {
        static const std::vector<FieldSpec> table = [] {
            std::vector<FieldSpec> rows{
                textField<KORA_Check, &KORA_Check::m_InstallationID>("InstallationID"),
            };
            const std::vector<FieldSpec> device = deviceRows<KORA_Check>();
            rows.insert(rows.end(), device.begin(), device.end());
            return rows;
        }();
        return table;
    }

    bool operator==(const KORA_Check&) const = default;

  private:
    OptionalText m_InstallationID;
};

// A download that failed.
class KORA_DownloadError final : public KoraRecordOf<KORA_DownloadError>,
                                 public KoraErrorNoticeFields {
  public:
    static constexpr std::string_view kXsiType = "KORA_DownloadError";

    static const std::vector<FieldSpec>& fieldTable() {
        static const std::vector<FieldSpec> table = errorNoticeRows<KORA_DownloadError>();
        return table;
    }

    bool operator==(const KORA_DownloadError&) const = default;
};

// An installation that failed.
class KORA_InstallError final : public KoraRecordOf<KORA_InstallError>,
                                public KoraErrorNoticeFields {
  public:
    static constexpr std::string_view kXsiType = "KORA_InstallError";

    static const std::vector<FieldSpec>& fieldTable() {
        static const std::vector<FieldSpec> table = errorNoticeRows<KORA_InstallError>();
        return table;
    }

    bool operator==(const KORA_InstallError&) const = default;
};

// A download that finished.
class KORA_DownloadComplete final : public KoraRecordOf<KORA_DownloadComplete>,
                                    public KoraCompleteNoticeFields {
  public:
    static constexpr std::string_view kXsiType = "KORA_DownloadComplete";

    static const std::vector<FieldSpec>& fieldTable() {
        static const std::vector<FieldSpec> table = completeNoticeRows<KORA_DownloadComplete>();
        return table;
    }

    bool operator==(const KORA_DownloadComplete&) const = default;
};

// An installation that finished.
class KORA_InstallComplete final : public KoraRecordOf<KORA_InstallComplete>,
                                   public KoraCompleteNoticeFields {
  public:
    static constexpr std::string_view kXsiType = "KORA_InstallComplete";

    static const std::vector<FieldSpec>& fieldTable() {
        static const std::vector<FieldSpec> table = completeNoticeRows<KORA_InstallComplete>();
        return table;
    }

    bool operator==(const KORA_InstallComplete&) const = default;
};

// A download that was cancelled.
class KORA_DownloadCancel final : public KoraRecordOf<KORA_DownloadCancel>,
                                  public KoraCancelNoticeFields {
  public:
    static constexpr std::string_view kXsiType = "KORA_DownloadCancel";

    static const std::vector<FieldSpec>& fieldTable() {
        static const std::vector<FieldSpec> table = cancelNoticeRows<KORA_DownloadCancel>();
        return table;
    }

    bool operator==(const KORA_DownloadCancel&) const = default;
};

// An installation that was cancelled.
class KORA_InstallCancel final : public KoraRecordOf<KORA_InstallCancel>,
                                 public KoraCancelNoticeFields {
  public:
    static constexpr std::string_view kXsiType = "KORA_InstallCancel";

    static const std::vector<FieldSpec>& fieldTable() {
        static const std::vector<FieldSpec> table = cancelNoticeRows<KORA_InstallCancel>();
        return table;
    }

    bool operator==(const KORA_InstallCancel&) const = default;
};

// An application that was removed.
class KORA_Uninstall final : public KoraRecordOf<KORA_Uninstall> {
  public:
    static constexpr std::string_view kXsiType = "KORA_Uninstall";

    const OptionalText& InstallationID() const { return m_InstallationID; }
    void setInstallationID(OptionalText value) { m_InstallationID = std::move(value); }
    const OptionalText& ProductID() const { return m_ProductID; }
    void setProductID(OptionalText value) { m_ProductID = std::move(value); }

    static const std::vector<FieldSpec>& fieldTable() {
        static const std::vector<FieldSpec> table{
            textField<KORA_Uninstall, &KORA_Uninstall::m_InstallationID>("InstallationID"),
            textField<KORA_Uninstall, &KORA_Uninstall::m_ProductID>("ProductID"),
        };
        return table;
    }

    bool operator==(const KORA_Uninstall&) const = default;

  private:
    OptionalText m_InstallationID;
    OptionalText m_ProductID;
};

}  // namespace kora
