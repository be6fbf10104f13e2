#include "soap/soap_reply.h"

#include <libxml/parser.h>

#include <climits>

#include "codecs/xml_resources.h"

namespace kora {
namespace {

bool hasLocalName(xmlNodePtr node, std::string_view name) {
    return node->type == XML_ELEMENT_NODE && name == textOf(node->name);
}

// Both without a prefix counts as the same prefix.
bool samePrefix(xmlNodePtr a, xmlNodePtr b) {
    const xmlChar* prefixA = a->ns ? a->ns->prefix : nullptr;
    const xmlChar* prefixB = b->ns ? b->ns->prefix : nullptr;
    if (prefixA == nullptr || prefixB == nullptr) return prefixA == prefixB;
    return xmlStrEqual(prefixA, prefixB) != 0;
}

std::vector<BodyPart> partsOfBody(xmlNodePtr body, std::string_view responseElement,
                                  ResponseReader readResponse) {
    std::vector<BodyPart> parts;
    for (xmlNodePtr child = body->children; child != nullptr; child = child->next) {
        if (hasLocalName(child, responseElement)) {
            parts.emplace_back(readResponse(child));
        } else if (hasLocalName(child, "Fault") && samePrefix(child, body)) {
            parts.emplace_back(SOAPFault::deserializeNode(child));
        }
    }
    return parts;
}

XmlDocument parseUntrusted(std::string_view body) {
    if (body.size() > INT_MAX) return nullptr;
    // No XML_PARSE_NOENT or XML_PARSE_DTDLOAD: entities stay unexpanded and
    // no external subset is fetched; NONET forbids network access outright.
    // NOERROR and NOWARNING keep libxml2 from printing on standard error.
    XmlDocument doc(xmlReadMemory(body.data(), static_cast<int>(body.size()), nullptr, nullptr,
                                  XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING));
    if (doc && (doc->intSubset != nullptr || doc->extSubset != nullptr)) return nullptr;
    return doc;
}

}  // namespace

SoapReply readSoapReply(std::string_view body, std::string_view responseElement,
                        ResponseReader readResponse) {
    SoapReply reply;
    const XmlDocument doc = parseUntrusted(body);
    xmlNodePtr root = doc ? xmlDocGetRootElement(doc.get()) : nullptr;
    if (root == nullptr) return reply;
    reply.wellFormed = true;
    for (xmlNodePtr child = root->children; child != nullptr; child = child->next) {
        if (hasLocalName(child, "Body")) {
            reply.bodyParts = partsOfBody(child, responseElement, readResponse);
        }
    }
    // libxml2's global parser state is left in place: releasing it after each
    // reply (xmlCleanupParser) would pull it from under any other user in the
    // process, and it is set up again on the next parse anyway.
    return reply;
}

}  // namespace kora
