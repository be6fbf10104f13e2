#pragma once

#include <array>
#include <cstddef>

// Places a constant in a section of the executable named "SEGMENT,SECTION", as
// the daemon carries its bundle description in "__TEXT,__info_plist".
//
// GCC hands a section name to the assembler unquoted, and the assembler would end
// the name at its comma; clang's built-in assembler takes the name as it is.
// Clang's address sanitizer would also pad the texts with a zeroed guard zone
// inside the section; the sections hold the documents alone.
#if defined(__clang__)
#define KORA_EMBEDDED_SECTION(name) \
    __attribute__((section(name), used, no_sanitize("address")))
#else
#define KORA_EMBEDDED_SECTION(name) __attribute__((section("\"" name "\""), used))
#endif

namespace kora {

// A section holds the document alone, as a file would, without C's NUL.
template <std::size_t N>
constexpr std::array<char, N - 1> withoutTerminator(const char (&text)[N]) {
    std::array<char, N - 1> bytes{};
    for (std::size_t i = 0; i + 1 < N; ++i) bytes[i] = text[i];
    return bytes;
}

}  // namespace kora
