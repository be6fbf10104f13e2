#pragma once

#include <string>
#include <utility>
#include <vector>

#include "messages/kora_record.h"

namespace kora {

// Element name -> record, in the order the elements are written.
using EnvelopeElements = std::vector<std::pair<std::string, const KoraRecord*>>;

// Writes the SOAP envelope of a request: the six namespace declarations on
// soap:Envelope, a soap:Header only for header elements and a soap:Body only
// for body elements, formatted with two spaces per level. Both binding kinds
// write the same text (SOAP 1.1 envelope namespace included).
class SoapEnvelopeWriter {
  public:
    std::string serializedFormUsingHeaderElements(const EnvelopeElements& headerElements,
                                                  const EnvelopeElements& bodyElements) const;

  protected:
    SoapEnvelopeWriter() = default;
};

// One shared writer per binding kind, created on first use and kept for the
// life of the process.
class KORASoapBinding_envelope final : public SoapEnvelopeWriter {
  public:
    static const KORASoapBinding_envelope& sharedInstance();
};

class KORASoap12Binding_envelope final : public SoapEnvelopeWriter {
  public:
    static const KORASoap12Binding_envelope& sharedInstance();
};

}  // namespace kora
