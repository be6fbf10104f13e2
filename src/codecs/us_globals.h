#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace kora {

// Namespace URI -> the prefix this system uses for it, whatever prefix a
// document declared.
using NamespaceTable = std::map<std::string, std::string, std::less<>>;

// Process-wide state of the service client: created on first use and never
// destroyed, so it stays valid during static destruction too.
class USGlobals {
  public:
    static USGlobals& sharedInstance();

    const NamespaceTable& wsdlStandardNamespaces() const { return wsdlStandardNamespaces_; }
    void setWsdlStandardNamespaces(NamespaceTable table) {
        wsdlStandardNamespaces_ = std::move(table);
    }

    // The prefix of a namespace URI, or none when the table does not know it.
    std::optional<std::string> prefixForNamespace(std::string_view uri) const;

  private:
    USGlobals() = default;
    NamespaceTable wsdlStandardNamespaces_;
};

// The three rows written once, on the first call, before the first binding or
// the first type resolution:
// XML Schema -> "xsd", the service namespace -> "KORA", Microsoft's WSDL
// types -> "s1".
void registerStandardNamespaces();

}  // namespace kora
