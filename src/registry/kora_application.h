#pragma once

#include <optional>
#include <string>

#include "platform/property_list.h"

namespace kora {

// One registered client application. The registry keeps it under its
// identifier; the identifier is not repeated inside the stored entry.
//
// Accessors return copies: the daemon serves client calls while it waits for
// the service, so a field may be replaced while a caller still uses its value.
class KoraApplication {
  public:
    using OptionalString = std::optional<std::string>;

    // Every string absent and the flag false.
    KoraApplication() = default;
    // Reads a stored registry entry; a missing key leaves its field absent.
    KoraApplication(std::string identifier, const PlistDictionary& entry);

    // The stored entry: "bundlePath", "lastKnownVersion", "hasUpdateAvailable",
    // "installationID", "productID", "brand"; an absent field produces no key.
    PlistDictionary serialize() const;

    OptionalString identifier() const { return identifier_; }
    void setIdentifier(OptionalString value) { identifier_ = std::move(value); }
    OptionalString bundlePath() const { return bundlePath_; }
    void setBundlePath(OptionalString value) { bundlePath_ = std::move(value); }
    OptionalString lastKnownVersion() const { return lastKnownVersion_; }
    void setLastKnownVersion(OptionalString value) { lastKnownVersion_ = std::move(value); }
    OptionalString installationID() const { return installationID_; }
    void setInstallationID(OptionalString value) { installationID_ = std::move(value); }
    OptionalString productID() const { return productID_; }
    void setProductID(OptionalString value) { productID_ = std::move(value); }
    OptionalString brand() const { return brand_; }
    void setBrand(OptionalString value) { brand_ = std::move(value); }
    // False in every record this system creates; kept as stored.
    bool hasUpdateAvailable() const { return hasUpdateAvailable_; }
    void setHasUpdateAvailable(bool value) { hasUpdateAvailable_ = value; }

  private:
    OptionalString identifier_;
    OptionalString bundlePath_;
    OptionalString lastKnownVersion_;
    OptionalString installationID_;
    OptionalString productID_;
    OptionalString brand_;
    bool hasUpdateAvailable_ = false;
};

}  // namespace kora
