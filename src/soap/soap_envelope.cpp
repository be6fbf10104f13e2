#include "soap/soap_envelope.h"

#include "platform/logging.h"
#include "codecs/service_namespaces.h"
#include "codecs/xml_resources.h"

namespace kora {
namespace {

xmlNsPtr declare(xmlNodePtr node, const char* uri, const char* prefix) {
    return xmlNewNs(node, BAD_CAST uri, BAD_CAST prefix);
}

// The declarations every request carries, in this order; the root element is
// in the "soap" namespace.
xmlNsPtr declareEnvelopeNamespaces(xmlNodePtr envelope, xmlNsPtr* xsl) {
    xmlNsPtr soap = declare(envelope, kSOAP11EnvelopeNamespace, "soap");
    *xsl = declare(envelope, kXSLTransformNamespace, "xsl");
    declare(envelope, kXMLSchemaInstanceNamespace, "xsi");
    declare(envelope, kXMLSchemaNamespace, "xsd");
    declare(envelope, KoraServiceNamespace, "KORA");
    declare(envelope, kMicrosoftWSDLTypesNamespace, "s1");
    return soap;
}

void addSection(xmlNodePtr envelope, xmlNsPtr soap, const char* sectionName,
                const EnvelopeElements& elements) {
    if (elements.empty()) return;
    xmlNodePtr section = xmlNewDocNode(envelope->doc, soap, BAD_CAST sectionName, nullptr);
    xmlAddChild(envelope, section);
    for (const auto& [name, record] : elements) {
        if (record == nullptr) continue;
        if (xmlNodePtr element = record->xmlNodeForDoc(envelope->doc, name, std::nullopt)) {
            xmlAddChild(section, element);
        }
    }
}

}  // namespace

std::string SoapEnvelopeWriter::serializedFormUsingHeaderElements(
    const EnvelopeElements& headerElements, const EnvelopeElements& bodyElements) const {
    XmlDocument doc(xmlNewDoc(BAD_CAST "1.0"));
    xmlNodePtr envelope =
        doc ? xmlNewDocNode(doc.get(), nullptr, BAD_CAST "Envelope", nullptr) : nullptr;
    if (envelope == nullptr) {
        logInfo("Error creating the xml document tree");
        return {};
    }
    xmlDocSetRootElement(doc.get(), envelope);
    xmlNsPtr xsl = nullptr;
    xmlSetNs(envelope, declareEnvelopeNamespaces(envelope, &xsl));
    xmlNewNsProp(envelope, xsl, BAD_CAST "version", BAD_CAST "1.0");

    addSection(envelope, envelope->ns, "Header", headerElements);
    addSection(envelope, envelope->ns, "Body", bodyElements);

    xmlChar* text = nullptr;
    int size = 0;
    xmlDocDumpFormatMemory(doc.get(), &text, &size, 1);
    const XmlCharBuffer owned(text);
    return owned ? std::string(textOf(owned.get()), static_cast<std::size_t>(size)) : std::string();
}

const KORASoapBinding_envelope& KORASoapBinding_envelope::sharedInstance() {
    static const auto* const instance = new KORASoapBinding_envelope;
    return *instance;
}

const KORASoap12Binding_envelope& KORASoap12Binding_envelope::sharedInstance() {
    static const auto* const instance = new KORASoap12Binding_envelope;
    return *instance;
}

}  // namespace kora
