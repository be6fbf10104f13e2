#pragma once

#include <string>

#include "messages/update_service.h"

namespace kora {

// The update service over SOAP at one address. Every call makes a new
// KORASoap12Binding with its XML traces on, so cookies a reply sets never
// reach the next exchange.
class SoapUpdateService final : public UpdateService {
  public:
    explicit SoapUpdateService(std::string address);

    ServiceReply<KORA_CheckResponse> check(const KORA_Check& request) override;
    ServiceReply<KORA_DownloadErrorResponse> downloadError(
        const KORA_DownloadError& notice) override;
    ServiceReply<KORA_InstallErrorResponse> installError(const KORA_InstallError& notice) override;
    ServiceReply<KORA_DownloadCompleteResponse> downloadComplete(
        const KORA_DownloadComplete& notice) override;
    ServiceReply<KORA_InstallCompleteResponse> installComplete(
        const KORA_InstallComplete& notice) override;
    ServiceReply<KORA_UninstallResponse> uninstall(const KORA_Uninstall& notice) override;

    // Ends every HTTP exchange of the process, not only this service's.
    void cancelAll() override;

    const std::string& address() const { return address_; }

  private:
    std::string address_;
};

}  // namespace kora
