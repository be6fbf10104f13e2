#pragma once

#include <libxml/tree.h>

#include <optional>
#include <string>

namespace kora {

// A fault reported by the service in a SOAP 1.1 or SOAP 1.2 reply body.
class SOAPFault {
  public:
    // Reads the Fault element; a Fault outside both SOAP envelope namespaces
    // gives a fault with every field absent.
    static SOAPFault deserializeNode(xmlNodePtr node);

    const std::optional<std::string>& faultcode() const { return faultcode_; }
    void setFaultcode(std::optional<std::string> value) { faultcode_ = std::move(value); }
    const std::optional<std::string>& faultstring() const { return faultstring_; }
    void setFaultstring(std::optional<std::string> value) { faultstring_ = std::move(value); }
    const std::optional<std::string>& faultactor() const { return faultactor_; }
    void setFaultactor(std::optional<std::string> value) { faultactor_ = std::move(value); }
    const std::optional<std::string>& detail() const { return detail_; }
    void setDetail(std::optional<std::string> value) { detail_ = std::move(value); }

    // The fault string without the service platform's exception prefix and
    // without the stack trace that follows the message.
    std::optional<std::string> simpleFaultString() const;

    bool operator==(const SOAPFault&) const = default;

  private:
    void readSoap11Child(xmlNodePtr child);
    void readSoap12Child(xmlNodePtr child);

    std::optional<std::string> faultcode_;
    std::optional<std::string> faultstring_;
    std::optional<std::string> faultactor_;
    std::optional<std::string> detail_;
};

}  // namespace kora
