#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "messages/kora_record.h"

// The eighteen message records of the update service. Each record type is one
// field list, F(type, name, element) per field in wire order; the same list
// gives the accessors, the storage and the field table that writing and
// reading walk. Every field is optional: a new record has all fields absent.

// The device description from ProductID on; Check sends it whole, the notices
// put UpdateID between InstallationID and ProductID.
#define KORA_DEVICE_FIELDS_FROM_PRODUCT_ID(F)                \
    F(std::string, ProductID, "ProductID")                   \
    F(std::string, HardwareUUID, "HardwareUUID")             \
    F(std::string, Username, "Username")                     \
    F(std::string, MobileNo, "MobileNo")                     \
    F(std::string, CustomerNo, "CustomerNo")                 \
    F(std::string, OperatingSystem, "OperatingSystem")       \
    F(std::string, OSEdition, "OSEdition")                   \
    F(double, ServicePack, "ServicePack")                    \
    F(std::string, OSArchitecture, "OSArchitecture")         \
    F(std::string, SystemType, "SystemType")                 \
    F(std::string, SystemArchitecture, "SystemArchitecture") \
    F(std::string, Region, "Region")                         \
    F(std::string, Country, "Country")                       \
    F(std::string, Brand, "Brand")                           \
    F(std::string, Version, "Version")                       \
    F(std::string, AdditionalInfo, "AdditionalInfo")

#define KORA_CHECK_FIELDS(F)                         \
    F(std::string, InstallationID, "InstallationID") \
    KORA_DEVICE_FIELDS_FROM_PRODUCT_ID(F)

#define KORA_NOTICE_FIELDS(F)                        \
    F(std::string, InstallationID, "InstallationID") \
    F(std::string, UpdateID, "UpdateID")             \
    KORA_DEVICE_FIELDS_FROM_PRODUCT_ID(F)            \
    F(std::string, StartTime, "StartTime")

#define KORA_ERROR_NOTICE_FIELDS(F)        \
    KORA_NOTICE_FIELDS(F)                  \
    F(std::string, ErrorTime, "ErrorTime") \
    F(std::string, ErrorMessage, "ErrorMessage")

#define KORA_COMPLETE_NOTICE_FIELDS(F) \
    KORA_NOTICE_FIELDS(F)              \
    F(std::string, FinishTime, "FinishTime")

#define KORA_CANCEL_NOTICE_FIELDS(F)         \
    KORA_NOTICE_FIELDS(F)                    \
    F(std::string, CancelTime, "CancelTime") \
    F(std::string, CancelMessage, "CancelMessage")

#define KORA_UNINSTALL_FIELDS(F)                     \
    F(std::string, InstallationID, "InstallationID") \
    F(std::string, ProductID, "ProductID")

#define KORA_CUPDATE_FIELDS(F)                       \
    F(std::string, InstallationID, "InstallationID") \
    F(std::string, ProductID, "ProductID")           \
    F(std::string, UpdateID, "UpdateID")             \
    F(std::string, Name, "Name")                     \
    F(std::string, Description, "Description")       \
    F(std::string, Location, "Location")             \
    F(std::string, VersionTo, "VersionTo")           \
    F(std::string, Size_, "Size")                    \
    F(std::string, Provider, "Provider")             \
    F(std::string, InstallTime, "InstallTime")       \
    F(std::string, Parameters, "Parameters")         \
    F(std::string, Hash, "Hash")                     \
    F(std::string, SignedName, "SignedName")         \
    F(double, UpdateOrder, "UpdateOrder")            \
    F(std::string, UpdateType, "UpdateType")         \
    F(std::string, GuiTitle, "GuiTitle")             \
    F(std::string, GuiDescription, "GuiDescription") \
    F(std::string, GuiReleaseNotes, "GuiReleaseNotes")

#define KORA_CERROR_FIELDS(F)                            \
    F(std::string, ErrorInstruction, "ErrorInstruction") \
    F(std::string, Parameters, "Parameters")

#define KORA_CHECK_RESPONSE_FIELDS(F) F(KORA_cUpdate, CheckResult, "CheckResult")
#define KORA_DOWNLOAD_ERROR_RESPONSE_FIELDS(F) \
    F(KORA_cError, DownloadErrorResult, "DownloadErrorResult")
#define KORA_INSTALL_ERROR_RESPONSE_FIELDS(F) \
    F(KORA_cError, InstallErrorResult, "InstallErrorResult")
#define KORA_NO_FIELDS(F)

// Getter named as the field, setter "set" + name.
#define KORA_FIELD_ACCESSORS(Type, Name, Element) \
    const std::optional<Type>& Name() const {     \
        return m_##Name;                          \
    }                                             \
    void set##Name(std::optional<Type> value) {   \
        m_##Name = std::move(value);              \
    }

#define KORA_FIELD_STORAGE(Type, Name, Element) std::optional<Type> m_##Name;

#define KORA_FIELD_SPEC(Type, Name, Element) makeField<Self, Type, &Self::m_##Name>(Element),

#define KORA_RECORD(RecordName, FIELDS)                                         \
    class RecordName final : public KoraRecordOf<RecordName> {                  \
      public:                                                                   \
        using Self = RecordName;                                                \
        static constexpr std::string_view kTypeName = #RecordName;              \
        FIELDS(KORA_FIELD_ACCESSORS)                                            \
        static const std::vector<FieldSpec>& fieldTable() {                     \
            static const std::vector<FieldSpec> table{FIELDS(KORA_FIELD_SPEC)}; \
            return table;                                                       \
        }                                                                       \
        bool operator==(const RecordName&) const = default;                     \
                                                                                \
      private:                                                                  \
        FIELDS(KORA_FIELD_STORAGE)                                              \
    }

namespace kora {

KORA_RECORD(KORA_cUpdate, KORA_CUPDATE_FIELDS);
KORA_RECORD(KORA_cError, KORA_CERROR_FIELDS);

KORA_RECORD(KORA_Check, KORA_CHECK_FIELDS);
KORA_RECORD(KORA_CheckResponse, KORA_CHECK_RESPONSE_FIELDS);
KORA_RECORD(KORA_DownloadError, KORA_ERROR_NOTICE_FIELDS);
KORA_RECORD(KORA_DownloadErrorResponse, KORA_DOWNLOAD_ERROR_RESPONSE_FIELDS);
KORA_RECORD(KORA_InstallError, KORA_ERROR_NOTICE_FIELDS);
KORA_RECORD(KORA_InstallErrorResponse, KORA_INSTALL_ERROR_RESPONSE_FIELDS);
KORA_RECORD(KORA_DownloadComplete, KORA_COMPLETE_NOTICE_FIELDS);
KORA_RECORD(KORA_DownloadCompleteResponse, KORA_NO_FIELDS);
KORA_RECORD(KORA_InstallComplete, KORA_COMPLETE_NOTICE_FIELDS);
KORA_RECORD(KORA_InstallCompleteResponse, KORA_NO_FIELDS);
KORA_RECORD(KORA_DownloadCancel, KORA_CANCEL_NOTICE_FIELDS);
KORA_RECORD(KORA_DownloadCancelResponse, KORA_NO_FIELDS);
KORA_RECORD(KORA_InstallCancel, KORA_CANCEL_NOTICE_FIELDS);
KORA_RECORD(KORA_InstallCancelResponse, KORA_NO_FIELDS);
KORA_RECORD(KORA_Uninstall, KORA_UNINSTALL_FIELDS);
KORA_RECORD(KORA_UninstallResponse, KORA_NO_FIELDS);

// Every record type, for tables that name them all (the type registry).
#define KORA_RECORD_TYPES(X)                                                                 \
    X(KORA_Check)                                                                            \
    X(KORA_cUpdate)                                                                          \
    X(KORA_CheckResponse) X(KORA_DownloadError) X(KORA_cError) X(KORA_DownloadErrorResponse) \
        X(KORA_InstallError) X(KORA_InstallErrorResponse) X(KORA_DownloadComplete)           \
            X(KORA_DownloadCompleteResponse) X(KORA_InstallComplete)                         \
                X(KORA_InstallCompleteResponse) X(KORA_DownloadCancel)                       \
                    X(KORA_DownloadCancelResponse) X(KORA_InstallCancel)                     \
                        X(KORA_InstallCancelResponse) X(KORA_Uninstall) X(KORA_UninstallResponse)

}  // namespace kora
