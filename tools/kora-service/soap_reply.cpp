#include "soap_messages.h"

#include "codecs/service_namespaces.h"
#include "codecs/xml_resources.h"

namespace kora::service {
namespace {

const char* envelopeNamespace(SoapVersion version) {
    return version == SoapVersion::Soap12 ? kSOAP12EnvelopeNamespace : kSOAP11EnvelopeNamespace;
}

// A document whose root soap:Envelope declares the prefixes a reply uses;
// returns its soap:Body.
xmlNodePtr newEnvelope(XmlDocument& doc, SoapVersion version) {
    doc.reset(xmlNewDoc(BAD_CAST "1.0"));
    xmlNodePtr envelope = xmlNewDocNode(doc.get(), nullptr, BAD_CAST "Envelope", nullptr);
    xmlDocSetRootElement(doc.get(), envelope);
    xmlNsPtr soap = xmlNewNs(envelope, BAD_CAST envelopeNamespace(version), BAD_CAST "soap");
    xmlSetNs(envelope, soap);
    xmlNewNs(envelope, BAD_CAST kXMLSchemaInstanceNamespace, BAD_CAST "xsi");
    xmlNewNs(envelope, BAD_CAST kXMLSchemaNamespace, BAD_CAST "xsd");
    // Records name their elements "KORA:..." without a namespace object of
    // their own; this declaration gives the prefix its meaning.
    xmlNewNs(envelope, BAD_CAST KoraServiceNamespace, BAD_CAST "KORA");
    return xmlNewChild(envelope, soap, BAD_CAST "Body", nullptr);
}

std::string text(const XmlDocument& doc) {
    xmlChar* bytes = nullptr;
    int size = 0;
    xmlDocDumpMemoryEnc(doc.get(), &bytes, &size, "UTF-8");
    const XmlCharBuffer owned(bytes);
    return owned ? std::string(textOf(owned.get()), static_cast<std::size_t>(size)) : std::string();
}

// An element in no namespace: xmlNewChild would put it in its parent's.
void addUnqualified(xmlNodePtr parent, const char* name, const std::string& text) {
    xmlNodePtr child = xmlNewDocNode(parent->doc, nullptr, BAD_CAST name, nullptr);
    xmlNodeAddContent(child, BAD_CAST text.c_str());
    xmlAddChild(parent, child);
}

// SOAP 1.1: faultcode and faultstring, unqualified.
void addSoap11Fault(xmlNodePtr fault, FaultSide side, std::string_view reason) {
    addUnqualified(fault, "faultcode", side == FaultSide::Sender ? "soap:Client" : "soap:Server");
    addUnqualified(fault, "faultstring", std::string(reason));
}

// SOAP 1.2: Code/Value and Reason/Text, in the envelope's namespace.
void addSoap12Fault(xmlNodePtr fault, FaultSide side, std::string_view reason) {
    xmlNodePtr code = xmlNewChild(fault, fault->ns, BAD_CAST "Code", nullptr);
    xmlNewTextChild(code, fault->ns, BAD_CAST "Value",
                    BAD_CAST(side == FaultSide::Sender ? "soap:Sender" : "soap:Receiver"));
    xmlNodePtr reasonNode = xmlNewChild(fault, fault->ns, BAD_CAST "Reason", nullptr);
    xmlNodePtr textNode = xmlNewTextChild(reasonNode, fault->ns, BAD_CAST "Text",
                                          BAD_CAST std::string(reason).c_str());
    xmlNodeSetLang(textNode, BAD_CAST "en");
}

}  // namespace

std::string replyEnvelope(SoapVersion version, std::string_view elementName,
                          const KoraRecord& response) {
    XmlDocument doc;
    xmlNodePtr body = newEnvelope(doc, version);
    xmlAddChild(body, response.xmlNodeForDoc(doc.get(), elementName, std::nullopt));
    return text(doc);
}

std::string faultEnvelope(SoapVersion version, FaultSide side, std::string_view reason) {
    XmlDocument doc;
    xmlNodePtr body = newEnvelope(doc, version);
    xmlNodePtr fault = xmlNewChild(body, body->ns, BAD_CAST "Fault", nullptr);
    if (version == SoapVersion::Soap12) {
        addSoap12Fault(fault, side, reason);
    } else {
        addSoap11Fault(fault, side, reason);
    }
    return text(doc);
}

const char* replyContentType(SoapVersion version) {
    return version == SoapVersion::Soap12 ? "application/soap+xml; charset=utf-8"
                                          : "text/xml; charset=utf-8";
}

}  // namespace kora::service
