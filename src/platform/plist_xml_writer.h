#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/property_list.h"

namespace kora {

// The XML form of property lists, written from our own values byte for byte
// as libplist writes it, without building libplist's tree: the registry is
// rewritten on every registration, and building that tree cost more than the
// rest of the write.
//
// A value's lines carry one tab per container around it; a root value sits at
// depth 0 between the header and the footer.

inline constexpr std::string_view kPlistXmlHeader =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
inline constexpr std::string_view kPlistXmlFooter = "</plist>\n";

// libplist counts dates in seconds since 2001-01-01 00:00:00 UTC.
inline constexpr std::int64_t kPlistDateEpoch = 978307200;

// Appends the lines of `value` at `depth`. False, with `out` partly written,
// when containers nest deeper than kPlistMaxDepth, which no reader accepts.
bool appendPlistXml(std::string& out, const PlistValue& value, std::size_t depth);
bool appendPlistXml(std::string& out, const PlistDictionary& dictionary, std::size_t depth);

// Appends the "<key>" line of a dictionary entry whose value sits at `depth`.
void appendPlistXmlKey(std::string& out, std::string_view key, std::size_t depth);

// The lines around the items of a container ("array" or "dict") at `depth`,
// for callers that write the items one by one rather than hold them all: the
// opening and closing tags, or one "<dict/>" line when it is empty.
void appendPlistXmlOpening(std::string& out, std::string_view tag, bool empty, std::size_t depth);
void appendPlistXmlClosing(std::string& out, std::string_view tag, bool empty, std::size_t depth);

}  // namespace kora
