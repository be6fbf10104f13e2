#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kora {

// An XML property list whose root nests `open` `depth` times, then closes it
// as often with `close`.
inline std::string nestedPlist(std::string_view open, std::string_view close, std::size_t depth) {
    std::string text = "<?xml version=\"1.0\"?><plist version=\"1.0\">";
    for (std::size_t i = 0; i < depth; ++i) text += open;
    for (std::size_t i = 0; i < depth; ++i) text += close;
    return text + "</plist>";
}

}  // namespace kora
