#pragma once

#include <libxml/tree.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/date.h"
#include "codecs/us_boolean.h"

namespace kora {

using ByteBuffer = std::vector<std::uint8_t>;

// One codec per scalar value type of the service messages: a value becomes an
// element named "prefix:name" (no namespace object attached: the envelope
// declares the prefix) and an element reads back into a value.
//
//   static xmlNodePtr xmlNodeForDoc(const T& value, xmlDocPtr doc,
//                                   std::string_view elementName,
//                                   const std::optional<std::string>& prefix);
//   static std::optional<T> deserializeNode(xmlNodePtr node);
//
// The node belongs to the document but is not linked; the caller adds it.
template <typename T>
struct ValueCodec;

template <>
struct ValueCodec<std::string> {
    static xmlNodePtr xmlNodeForDoc(const std::string& value, xmlDocPtr doc,
                                    std::string_view elementName,
                                    const std::optional<std::string>& prefix);
    static std::optional<std::string> deserializeNode(xmlNodePtr node);
};

// Numbers read as double; an element without numeric text reads as 0, so the
// result always has a value.
template <>
struct ValueCodec<double> {
    static xmlNodePtr xmlNodeForDoc(double value, xmlDocPtr doc, std::string_view elementName,
                                    const std::optional<std::string>& prefix);
    static std::optional<double> deserializeNode(xmlNodePtr node);
};

template <>
struct ValueCodec<Date> {
    static xmlNodePtr xmlNodeForDoc(Date value, xmlDocPtr doc, std::string_view elementName,
                                    const std::optional<std::string>& prefix);
    static std::optional<Date> deserializeNode(xmlNodePtr node);
};

template <>
struct ValueCodec<ByteBuffer> {
    static xmlNodePtr xmlNodeForDoc(const ByteBuffer& value, xmlDocPtr doc,
                                    std::string_view elementName,
                                    const std::optional<std::string>& prefix);
    static std::optional<ByteBuffer> deserializeNode(xmlNodePtr node);
};

template <>
struct ValueCodec<USBoolean> {
    static xmlNodePtr xmlNodeForDoc(const USBoolean& value, xmlDocPtr doc,
                                    std::string_view elementName,
                                    const std::optional<std::string>& prefix);
    static std::optional<USBoolean> deserializeNode(xmlNodePtr node);
};

}  // namespace kora
