#pragma once

#include <elf.h>

#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

namespace kora::test {

using Bytes = std::vector<std::uint8_t>;
constexpr bool kHostBig = std::endian::native == std::endian::big;

// Appends fields in a chosen byte order; Mach-O images use host order, fat headers big.
struct Out {
    bool big = kHostBig;
    Bytes bytes;
    void u32(std::uint32_t v) {
        for (int i = 0; i < 4; ++i) bytes.push_back(v >> (big ? 24 - 8 * i : 8 * i));
    }
    void u64(std::uint64_t v) {
        u32(static_cast<std::uint32_t>(big ? v >> 32 : v));
        u32(static_cast<std::uint32_t>(big ? v : v >> 32));
    }
    void word(bool wide, std::uint64_t v) { wide ? u64(v) : u32(static_cast<std::uint32_t>(v)); }
    void name(std::string s) { s.resize(16, '\0'), bytes.insert(bytes.end(), s.begin(), s.end()); }
};

struct Sect {
    std::string segment, name, data;
};
using Sects = std::vector<Sect>;

// One segment command per section; the section data follows all commands, last in the file.
inline Bytes machO(bool wide, const Sects& sects, bool big = kHostBig) {
    const std::uint32_t cmdsize = wide ? 72 + 80 : 56 + 68;
    Out out{big, {}};
    for (std::uint32_t v : {wide ? 0xfeedfacfu : 0xfeedfaceu, 7u, 3u, 2u}) out.u32(v);
    out.u32(sects.size()), out.u32(sects.size() * cmdsize), out.u32(0);
    if (wide) out.u32(0);
    std::uint64_t dataAt = out.bytes.size() + sects.size() * cmdsize;
    for (const Sect& s : sects) {
        out.u32(wide ? 0x19 : 0x1), out.u32(cmdsize), out.name(s.segment);
        for (int i = 0; i < 4; ++i) out.word(wide, 0);
        out.u32(7), out.u32(5), out.u32(1), out.u32(0);
        out.name(s.name), out.name(s.segment), out.word(wide, 0), out.word(wide, s.data.size());
        out.u32(dataAt);
        for (int i = 0; i < (wide ? 7 : 6); ++i) out.u32(0);
        dataAt += s.data.size();
    }
    for (const Sect& s : sects) out.bytes.insert(out.bytes.end(), s.data.begin(), s.data.end());
    return out.bytes;
}

// Slices follow the table back to back, at offsets with no particular alignment.
inline Bytes fat(const std::vector<Bytes>& slices) {
    Out out{true, {}};
    out.u32(0xcafebabe), out.u32(slices.size());
    std::uint32_t at = 8 + 20 * slices.size();
    for (const Bytes& slice : slices)
        out.u32(7), out.u32(3), out.u32(at), out.u32(slice.size()), out.u32(4), at += slice.size();
    for (const Bytes& slice : slices) out.bytes.insert(out.bytes.end(), slice.begin(), slice.end());
    return out.bytes;
}

// Headers, then the name table, then the one named section's data, last in the file.
template <bool kWide>
Bytes elf(const std::string& name, const std::string& data, std::uint32_t type = SHT_PROGBITS,
          unsigned char order = kHostBig ? ELFDATA2MSB : ELFDATA2LSB) {
    using Ehdr = std::conditional_t<kWide, Elf64_Ehdr, Elf32_Ehdr>;
    using Shdr = std::conditional_t<kWide, Elf64_Shdr, Elf32_Shdr>;
    const std::string names = std::string("\0.shstrtab\0", 11) + name + '\0';
    Ehdr header{};
    std::memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = kWide ? ELFCLASS64 : ELFCLASS32;
    header.e_ident[EI_DATA] = order;
    header.e_shoff = sizeof(Ehdr), header.e_shentsize = sizeof(Shdr);
    header.e_shnum = 3, header.e_shstrndx = 1;
    Shdr sections[3]{};
    sections[1].sh_name = 1, sections[1].sh_type = SHT_STRTAB;
    sections[1].sh_offset = sizeof(Ehdr) + sizeof sections, sections[1].sh_size = names.size();
    sections[2].sh_name = 11, sections[2].sh_type = type;
    sections[2].sh_offset = sections[1].sh_offset + names.size(), sections[2].sh_size = data.size();
    std::string out(reinterpret_cast<const char*>(&header), sizeof header);
    out.append(reinterpret_cast<const char*>(sections), sizeof sections).append(names + data);
    return Bytes(out.begin(), out.end());
}

}  // namespace kora::test
