#include "codecs/soap_fault.h"

#include <memory>
#include <string_view>

#include "codecs/service_namespaces.h"
#include "codecs/xml_resources.h"
#include "codecs/value_codecs.h"

namespace kora {
namespace {

bool hasName(xmlNodePtr node, const char* name) {
    return xmlStrEqual(node->name, BAD_CAST name) != 0;
}

bool hasNamespace(xmlNodePtr node, const char* uri) {
    return node->ns != nullptr && xmlStrEqual(node->ns->href, BAD_CAST uri) != 0;
}

template <typename Visit>
void forEachChildElement(xmlNodePtr node, Visit visit) {
    for (xmlNodePtr child = node->children; child != nullptr; child = child->next) {
        if (child->type == XML_ELEMENT_NODE) visit(child);
    }
}

std::optional<std::string> stringValue(xmlNodePtr node) {
    return ValueCodec<std::string>::deserializeNode(node);
}

// SOAP 1.2 puts the code in Code/Value; only the first Value counts, and the
// Subcode is not read.
std::optional<xmlNodePtr> firstValueChild(xmlNodePtr code) {
    for (xmlNodePtr child = code->children; child != nullptr; child = child->next) {
        if (child->type == XML_ELEMENT_NODE && hasName(child, "Value")) return child;
    }
    return std::nullopt;
}

// All text below the node, every Text child of a SOAP 1.2 Reason run together.
std::string wholeContent(xmlNodePtr node) {
    XmlCharBuffer content(xmlNodeGetContent(node));
    return content ? reinterpret_cast<const char*>(content.get()) : "";
}

// One left-to-right pass: text that joins up after a removal is kept.
std::string removeAll(std::string_view text, std::string_view part) {
    std::string result;
    std::size_t start = 0;
    for (std::size_t found = text.find(part); found != std::string_view::npos;
         found = text.find(part, start)) {
        result.append(text, start, found - start);
        start = found + part.size();
    }
    result.append(text.substr(start));
    return result;
}

}  // namespace

SOAPFault SOAPFault::deserializeNode(xmlNodePtr node) {
    SOAPFault fault;
    if (node == nullptr) return fault;
    if (hasNamespace(node, kSOAP11EnvelopeNamespace)) {
        forEachChildElement(node, [&](xmlNodePtr child) { fault.readSoap11Child(child); });
    } else if (hasNamespace(node, kSOAP12EnvelopeNamespace)) {
        forEachChildElement(node, [&](xmlNodePtr child) { fault.readSoap12Child(child); });
    }
    return fault;
}

void SOAPFault::readSoap11Child(xmlNodePtr child) {
    if (hasName(child, "faultcode")) {
        faultcode_ = stringValue(child);
    } else if (hasName(child, "faultstring")) {
        faultstring_ = stringValue(child);
    } else if (hasName(child, "faultactor")) {
        faultactor_ = stringValue(child);
    } else if (hasName(child, "detail")) {
        detail_ = stringValue(child);
    }
}

void SOAPFault::readSoap12Child(xmlNodePtr child) {
    if (hasName(child, "Code")) {
        if (const auto value = firstValueChild(child)) faultcode_ = stringValue(*value);
    } else if (hasName(child, "Reason")) {
        faultstring_ = wholeContent(child);
    } else if (hasName(child, "Node")) {
        faultactor_ = stringValue(child);
    } else if (hasName(child, "Detail")) {
        detail_ = stringValue(child);
    }
}

std::optional<std::string> SOAPFault::simpleFaultString() const {
    if (!faultstring_) return std::nullopt;
    std::string text = removeAll(*faultstring_, "System.Web.Services.Protocols.SoapException: ");
    const std::size_t trace = text.find("\n   at ");
    if (trace != std::string::npos) text.erase(trace);
    return text;
}

}  // namespace kora
