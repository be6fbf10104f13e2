#include "codecs/us_globals.h"

#include <mutex>

#include "codecs/service_namespaces.h"

namespace kora {

USGlobals& USGlobals::sharedInstance() {
    static USGlobals* const instance = new USGlobals;
    return *instance;
}

std::optional<std::string> USGlobals::prefixForNamespace(std::string_view uri) const {
    const auto found = wsdlStandardNamespaces_.find(uri);
    if (found == wsdlStandardNamespaces_.end()) return std::nullopt;
    return found->second;
}

void registerStandardNamespaces() {
    static std::once_flag once;
    std::call_once(once, [] {
        USGlobals::sharedInstance().setWsdlStandardNamespaces({
            {kXMLSchemaNamespace, "xsd"},
            {KoraServiceNamespace, "KORA"},
            {kMicrosoftWSDLTypesNamespace, "s1"},
        });
    });
}

}  // namespace kora
