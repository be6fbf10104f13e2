#pragma once

namespace kora {

// The namespace of every message element of the update service, declared for
// the prefix "KORA" in request envelopes and the base of every SOAPAction.
inline constexpr const char* KoraServiceNamespace = "http://kora.olvara.com/ns/KORA";

inline constexpr const char* kXMLSchemaNamespace = "http://www.w3.org/2001/XMLSchema";
inline constexpr const char* kXMLSchemaInstanceNamespace =
    "http://www.w3.org/2001/XMLSchema-instance";
inline constexpr const char* kXSLTransformNamespace = "http://www.w3.org/1999/XSL/Transform";
inline constexpr const char* kMicrosoftWSDLTypesNamespace = "http://microsoft.com/wsdl/types/";
inline constexpr const char* kSOAP11EnvelopeNamespace = "http://schemas.xmlsoap.org/soap/envelope/";
inline constexpr const char* kSOAP12EnvelopeNamespace = "http://www.w3.org/2003/05/soap-envelope";

}  // namespace kora
