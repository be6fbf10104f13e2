#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace kora {

// What a property list would expand into, read from the raw bytes without
// building the tree, so that hostile input can be refused before libplist
// recurses through it or fills memory.
struct PlistShape {
    // How deeply arrays and dictionaries nest; a scalar adds no level.
    std::size_t depth = 0;
    // Values in the expanded tree, dictionary keys included. A binary object
    // referred to twice counts twice, as libplist copies it.
    std::size_t nodes = 0;
};

// The shape, or one past the caps of input_limits.h when it would exceed them
// (counting stops there). Input whose nesting a parser could read otherwise
// than this count does also lies past the caps: a malformed or cyclic binary
// object graph, a binary dictionary key that is not a plain string, an XML
// internal DTD subset, a single-quoted attribute, unbalanced or mismatched tags.
PlistShape plistShape(std::span<const std::uint8_t> bytes);

// True when the shape is within kPlistMaxDepth and kPlistMaxNodes.
bool withinPlistCaps(const PlistShape& shape);

}  // namespace kora
