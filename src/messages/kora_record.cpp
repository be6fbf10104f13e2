#include "messages/kora_record.h"

#include "messages/kora_type_registry.h"
#include "codecs/service_namespaces.h"
#include "codecs/us_globals.h"
#include "codecs/xml_escaping.h"
#include "codecs/xml_resources.h"

namespace kora {
namespace {

const FieldSpec* fieldNamed(const std::vector<FieldSpec>& fields, const xmlChar* localName) {
    for (const FieldSpec& field : fields) {
        if (field.elementName == textOf(localName)) return &field;
    }
    return nullptr;
}

std::optional<std::string> xsiTypeAttribute(xmlNodePtr element) {
    XmlCharBuffer value(
        xmlGetNsProp(element, BAD_CAST "type", BAD_CAST kXMLSchemaInstanceNamespace));
    if (!value) return std::nullopt;
    return std::string(textOf(value.get()));
}

// "prefix:local" names a type through the namespace table: the document's
// prefix is resolved to its URI, and the URI to this system's own prefix, so
// «tns:cUpdate» with tns bound to the service namespace is "KORA_cUpdate".
// A prefix without a declaration in scope (an empty one never has one: it is
// not the default namespace), or a namespace the table does not know, names
// no type.
std::optional<std::string> typeNameFromAttribute(xmlNodePtr element, std::string_view value) {
    const std::size_t colon = value.find(':');
    if (colon == std::string_view::npos) return std::string(value);
    const std::string prefix(value.substr(0, colon));
    std::string_view localName = value.substr(colon + 1);
    localName = localName.substr(0, localName.find(':'));

    if (prefix.empty()) return std::nullopt;
    xmlNsPtr ns = xmlSearchNs(element->doc, element, BAD_CAST prefix.c_str());
    if (ns == nullptr || ns->href == nullptr) return std::nullopt;
    registerStandardNamespaces();
    const std::optional<std::string> ourPrefix =
        USGlobals::sharedInstance().prefixForNamespace(textOf(ns->href));
    if (!ourPrefix) return std::nullopt;
    return *ourPrefix + "_" + std::string(localName);
}

}  // namespace

xmlNodePtr KoraRecord::xmlNodeForDoc(xmlDocPtr doc, std::string_view elementName,
                                     const std::optional<std::string>& prefix) const {
    // Unlike a plain value, a record always gets a prefixed name.
    const std::string& usedPrefix = prefix && !prefix->empty() ? *prefix : nsPrefix();
    const std::string name = xmlString(usedPrefix + ":" + std::string(elementName));
    xmlNodePtr node = xmlNewDocNode(doc, nullptr, BAD_CAST name.c_str(), nullptr);
    if (node == nullptr) return nullptr;
    addAttributesToNode(node);
    addElementsToNode(node);
    return node;
}

void KoraRecord::addElementsToNode(xmlNodePtr node) const {
    for (const FieldSpec& field : fields()) {
        if (xmlNodePtr child = field.write(*this, node->doc, field.elementName)) {
            xmlAddChild(node, child);
        }
    }
}

void KoraRecord::deserializeElementsFromNode(xmlNodePtr node) {
    const std::vector<FieldSpec>& table = fields();
    for (xmlNodePtr child = node->children; child != nullptr; child = child->next) {
        if (child->type != XML_ELEMENT_NODE) continue;
        if (const FieldSpec* field = fieldNamed(table, child->name)) readField(*field, child);
    }
}

void KoraRecord::readField(const FieldSpec& field, xmlNodePtr element) {
    const std::optional<std::string> typeAttribute = xsiTypeAttribute(element);
    if (!typeAttribute) {
        field.readDeclared(*this, element);
        return;
    }
    const std::optional<std::string> typeName = typeNameFromAttribute(element, *typeAttribute);
    const TypeReader reader = typeName ? typeReaderNamed(*typeName) : nullptr;
    field.store(*this, reader ? reader(element) : MessageValue{});
}

std::vector<FieldView> KoraRecord::fieldValues() const {
    std::vector<FieldView> views;
    for (const FieldSpec& field : fields()) views.push_back({field.elementName, field.view(*this)});
    return views;
}

}  // namespace kora
