#pragma once

#include <libxml/tree.h>

#include <memory>

namespace kora {

// libxml2 objects owned by one scope.
struct XmlDocFree {
    void operator()(xmlDocPtr doc) const { xmlFreeDoc(doc); }
};
using XmlDocument = std::unique_ptr<xmlDoc, XmlDocFree>;

struct XmlCharBufferFree {
    void operator()(xmlChar* text) const { xmlFree(text); }
};
using XmlCharBuffer = std::unique_ptr<xmlChar, XmlCharBufferFree>;

inline const char* textOf(const xmlChar* text) {
    return reinterpret_cast<const char*>(text);
}

}  // namespace kora
