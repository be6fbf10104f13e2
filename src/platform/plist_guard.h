#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace kora {

// How deeply the arrays and dictionaries of a property list nest, read from
// the raw bytes without building the tree, so that hostile input can be
// refused before libplist recurses through it. Binary lists that libplist
// could not survive (a malformed or cyclic object graph, a dictionary key that
// is not a plain string) count as infinitely deep.
std::size_t plistNestingDepth(std::span<const std::uint8_t> bytes);

}  // namespace kora
