#pragma once

// The response records of the eight operations, and the update and error
// descriptions they carry.

#include <optional>
#include <string>
#include <vector>

#include "messages/kora_record.h"

namespace kora {

// An update the service offers. Size_ is written and read as the element "Size".
class KORA_cUpdate final : public KoraRecordOf<KORA_cUpdate> {
  public:
    static constexpr std::string_view kXsiType = "KORA_cUpdate";

    const OptionalText& InstallationID() const { return m_InstallationID; }
    void setInstallationID(OptionalText value) { m_InstallationID = std::move(value); }
    const OptionalText& ProductID() const { return m_ProductID; }
    void setProductID(OptionalText value) { m_ProductID = std::move(value); }
    const OptionalText& UpdateID() const { return m_UpdateID; }
    void setUpdateID(OptionalText value) { m_UpdateID = std::move(value); }
    const OptionalText& Name() const { return m_Name; }
    void setName(OptionalText value) { m_Name = std::move(value); }
    const OptionalText& Description() const { return m_Description; }
    void setDescription(OptionalText value) { m_Description = std::move(value); }
    const OptionalText& Location() const { return m_Location; }
    void setLocation(OptionalText value) { m_Location = std::move(value); }
    const OptionalText& VersionTo() const { return m_VersionTo; }
    void setVersionTo(OptionalText value) { m_VersionTo = std::move(value); }
    const OptionalText& Size_() const { return m_Size_; }
    void setSize_(OptionalText value) { m_Size_ = std::move(value); }
    const OptionalText& Provider() const { return m_Provider; }
    void setProvider(OptionalText value) { m_Provider = std::move(value); }
    const OptionalText& InstallTime() const { return m_InstallTime; }
    void setInstallTime(OptionalText value) { m_InstallTime = std::move(value); }
    const OptionalText& Parameters() const { return m_Parameters; }
    void setParameters(OptionalText value) { m_Parameters = std::move(value); }
    const OptionalText& Hash() const { return m_Hash; }
    void setHash(OptionalText value) { m_Hash = std::move(value); }
    const OptionalText& SignedName() const { return m_SignedName; }
    void setSignedName(OptionalText value) { m_SignedName = std::move(value); }
    const OptionalNumber& UpdateOrder() const { return m_UpdateOrder; }
    void setUpdateOrder(OptionalNumber value) { m_UpdateOrder = std::move(value); }
    const OptionalText& UpdateType() const { return m_UpdateType; }
    void setUpdateType(OptionalText value) { m_UpdateType = std::move(value); }
    const OptionalText& GuiTitle() const { return m_GuiTitle; }
    void setGuiTitle(OptionalText value) { m_GuiTitle = std::move(value); }
    const OptionalText& GuiDescription() const { return m_GuiDescription; }
    void setGuiDescription(OptionalText value) { m_GuiDescription = std::move(value); }
    const OptionalText& GuiReleaseNotes() const { return m_GuiReleaseNotes; }
    void setGuiReleaseNotes(OptionalText value) { m_GuiReleaseNotes = std::move(value); }

    static const std::vector<FieldSpec>& fieldTable() {
        static const std::vector<FieldSpec> table{
            textField<KORA_cUpdate, &KORA_cUpdate::m_InstallationID>("InstallationID"),
            textField<KORA_cUpdate, &KORA_cUpdate::m_ProductID>("ProductID"),
            textField<KORA_cUpdate, &KORA_cUpdate::m_UpdateID>("UpdateID"),
            textField<KORA_cUpdate, &KORA_cUpdate::m_Name>("Name"),
            textField<KORA_cUpdate, &KORA_cUpdate::m_Description>("Description"),
            textField<KORA_cUpdate, &KORA_cUpdate::m_Location>("Location"),
            textField<KORA_cUpdate, &KORA_cUpdate::m_VersionTo>("VersionTo"),
            textField<KORA_cUpdate, &KORA_cUpdate::m_Size_>("Size"),
            textField<KORA_cUpdate, &KORA_cUpdate::m_Provider>("Provider"),
            textField<KORA_cUpdate, &KORA_cUpdate::m_InstallTime>("InstallTime"),
            textField<KORA_cUpdate, &KORA_cUpdate::m_Parameters>("Parameters"),
            textField<KORA_cUpdate, &KORA_cUpdate::m_Hash>("Hash"),
            textField<KORA_cUpdate, &KORA_cUpdate::m_SignedName>("SignedName"),
            numberField<KORA_cUpdate, &KORA_cUpdate::m_UpdateOrder>("UpdateOrder"),
            textField<KORA_cUpdate, &KORA_cUpdate::m_UpdateType>("UpdateType"),
            textField<KORA_cUpdate, &KORA_cUpdate::m_GuiTitle>("GuiTitle"),
            textField<KORA_cUpdate, &KORA_cUpdate::m_GuiDescription>("GuiDescription"),
            textField<KORA_cUpdate, &KORA_cUpdate::m_GuiReleaseNotes>("GuiReleaseNotes"),
        };
        return table;
    }

    bool operator==(const KORA_cUpdate&) const = default;

  private:
    OptionalText m_InstallationID;
    OptionalText m_ProductID;
    OptionalText m_UpdateID;
    OptionalText m_Name;
    OptionalText m_Description;
    OptionalText m_Location;
    OptionalText m_VersionTo;
    OptionalText m_Size_;
    OptionalText m_Provider;
    OptionalText m_InstallTime;
    OptionalText m_Parameters;
    OptionalText m_Hash;
    OptionalText m_SignedName;
    OptionalNumber m_UpdateOrder;
    OptionalText m_UpdateType;
    OptionalText m_GuiTitle;
    OptionalText m_GuiDescription;
    OptionalText m_GuiReleaseNotes;
};

// What the service asks the client to do about a reported error.
class KORA_cError final : public KoraRecordOf<KORA_cError> {
  public:
    static constexpr std::string_view kXsiType = "KORA_cError";

    const OptionalText& ErrorInstruction() const { return m_ErrorInstruction; }
    void setErrorInstruction(OptionalText value) { m_ErrorInstruction = std::move(value); }
    const OptionalText& Parameters() const { return m_Parameters; }
    void setParameters(OptionalText value) { m_Parameters = std::move(value); }

    static const std::vector<FieldSpec>& fieldTable() {
        static const std::vector<FieldSpec> table{
            textField<KORA_cError, &KORA_cError::m_ErrorInstruction>("ErrorInstruction"),
            textField<KORA_cError, &KORA_cError::m_Parameters>("Parameters"),
        };
        return table;
    }

    bool operator==(const KORA_cError&) const = default;

  private:
    OptionalText m_ErrorInstruction;
    OptionalText m_Parameters;
};

// The answer to a Check: the update offered, if any.
class KORA_CheckResponse final : public KoraRecordOf<KORA_CheckResponse> {
  public:
    static constexpr std::string_view kXsiType = "KORA_CheckResponse";

    const std::optional<KORA_cUpdate>& CheckResult() const { return m_CheckResult; }
    void setCheckResult(std::optional<KORA_cUpdate> value) { m_CheckResult = std::move(value); }

    static const std::vector<FieldSpec>& fieldTable() {
        static const std::vector<FieldSpec> table{
            recordField<KORA_CheckResponse, KORA_cUpdate, &KORA_CheckResponse::m_CheckResult>(
                "CheckResult"),
        };
        return table;
    }

    bool operator==(const KORA_CheckResponse&) const = default;

  private:
    std::optional<KORA_cUpdate> m_CheckResult;
};

// The answer to a failed download.
class KORA_DownloadErrorResponse final : public KoraRecordOf<KORA_DownloadErrorResponse> {
  public:
    static constexpr std::string_view kXsiType = "KORA_DownloadErrorResponse";

    const std::optional<KORA_cError>& DownloadErrorResult() const { return m_DownloadErrorResult; }
    void setDownloadErrorResult(std::optional<KORA_cError> value) {
        m_DownloadErrorResult = std::move(value);
    }

    static const std::vector<FieldSpec>& fieldTable() {
        static const std::vector<FieldSpec> table{
            recordField<KORA_DownloadErrorResponse, KORA_cError,
                        &KORA_DownloadErrorResponse::m_DownloadErrorResult>("DownloadErrorResult"),
        };
        return table;
    }

    bool operator==(const KORA_DownloadErrorResponse&) const = default;

  private:
    std::optional<KORA_cError> m_DownloadErrorResult;
};

// The answer to a failed installation.
class KORA_InstallErrorResponse final : public KoraRecordOf<KORA_InstallErrorResponse> {
  public:
    static constexpr std::string_view kXsiType = "KORA_InstallErrorResponse";

    const std::optional<KORA_cError>& InstallErrorResult() const { return m_InstallErrorResult; }
    void setInstallErrorResult(std::optional<KORA_cError> value) {
        m_InstallErrorResult = std::move(value);
    }

    static const std::vector<FieldSpec>& fieldTable() {
        static const std::vector<FieldSpec> table{
            recordField<KORA_InstallErrorResponse, KORA_cError,
                        &KORA_InstallErrorResponse::m_InstallErrorResult>("InstallErrorResult"),
        };
        return table;
    }

    bool operator==(const KORA_InstallErrorResponse&) const = default;

  private:
    std::optional<KORA_cError> m_InstallErrorResult;
};

// The answers to the other notices carry no fields.
class KORA_DownloadCompleteResponse final : public KoraRecordOf<KORA_DownloadCompleteResponse> {
  public:
    static constexpr std::string_view kXsiType = "KORA_DownloadCompleteResponse";

    static const std::vector<FieldSpec>& fieldTable() {
        static const std::vector<FieldSpec> table;
        return table;
    }

    bool operator==(const KORA_DownloadCompleteResponse&) const = default;
};

class KORA_InstallCompleteResponse final : public KoraRecordOf<KORA_InstallCompleteResponse> {
  public:
    static constexpr std::string_view kXsiType = "KORA_InstallCompleteResponse";

    static const std::vector<FieldSpec>& fieldTable() {
        static const std::vector<FieldSpec> table;
        return table;
    }

    bool operator==(const KORA_InstallCompleteResponse&) const = default;
};

class KORA_DownloadCancelResponse final : public KoraRecordOf<KORA_DownloadCancelResponse> {
  public:
    static constexpr std::string_view kXsiType = "KORA_DownloadCancelResponse";

    static const std::vector<FieldSpec>& fieldTable() {
        static const std::vector<FieldSpec> table;
        return table;
    }

    bool operator==(const KORA_DownloadCancelResponse&) const = default;
};

class KORA_InstallCancelResponse final : public KoraRecordOf<KORA_InstallCancelResponse> {
  public:
    static constexpr std::string_view kXsiType = "KORA_InstallCancelResponse";

    static const std::vector<FieldSpec>& fieldTable() {
        static const std::vector<FieldSpec> table;
        return table;
    }

    bool operator==(const KORA_InstallCancelResponse&) const = default;
};

class KORA_UninstallResponse final : public KoraRecordOf<KORA_UninstallResponse> {
  public:
    static constexpr std::string_view kXsiType = "KORA_UninstallResponse";

    static const std::vector<FieldSpec>& fieldTable() {
        static const std::vector<FieldSpec> table;
        return table;
    }

    bool operator==(const KORA_UninstallResponse&) const = default;
};

}  // namespace kora
