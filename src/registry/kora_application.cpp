#include "registry/kora_application.h"

#include "update/stored_fields.h"

namespace kora {

KoraApplication::KoraApplication(std::string identifier, const PlistDictionary& entry)
    : identifier_(std::move(identifier)),
      bundlePath_(entry.string("bundlePath")),
      lastKnownVersion_(entry.string("lastKnownVersion")),
      installationID_(entry.string("installationID")),
      productID_(entry.string("productID")),
      brand_(entry.string("brand")),
      hasUpdateAvailable_(storedFlag(entry, "hasUpdateAvailable")) {}

PlistDictionary KoraApplication::serialize() const {
    PlistDictionary entry;
    storeString(entry, "bundlePath", bundlePath_);
    storeString(entry, "lastKnownVersion", lastKnownVersion_);
    entry.set("hasUpdateAvailable", PlistValue(hasUpdateAvailable_));
    storeString(entry, "installationID", installationID_);
    storeString(entry, "productID", productID_);
    storeString(entry, "brand", brand_);
    return entry;
}

}  // namespace kora
