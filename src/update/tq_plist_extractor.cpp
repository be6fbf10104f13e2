#include "update/tq_plist_extractor.h"

#include <elf.h>

#include <bit>
#include <cstring>
#include <exception>
#include <string>

#include "platform/mapped_file.h"

namespace kora {

namespace {

using Bytes = std::vector<std::uint8_t>;
using Image = std::span<const std::uint8_t>;

constexpr std::uint32_t FAT_MAGIC = 0xcafebabe;
constexpr std::uint32_t MH_MAGIC = 0xfeedface;
constexpr std::uint32_t MH_MAGIC_64 = 0xfeedfacf;
constexpr std::uint32_t LC_SEGMENT = 0x1;
constexpr std::uint32_t LC_SEGMENT_64 = 0x19;

// The published Mach-O layouts, field for field.
struct fat_header {
    std::uint32_t magic;
    std::uint32_t nfat_arch;
};
struct fat_arch {
    std::int32_t cputype;
    std::int32_t cpusubtype;
    std::uint32_t offset;
    std::uint32_t size;
    std::uint32_t align;
};
struct mach_header {
    std::uint32_t magic;
    std::int32_t cputype;
    std::int32_t cpusubtype;
    std::uint32_t filetype;
    std::uint32_t ncmds;
    std::uint32_t sizeofcmds;
    std::uint32_t flags;
};
// The 64-bit header is the 32-bit one with a reserved word after it.
struct mach_header_64 : mach_header {
    std::uint32_t reserved;
};
struct load_command {
    std::uint32_t cmd;
    std::uint32_t cmdsize;
};
struct segment_command {
    std::uint32_t cmd;
    std::uint32_t cmdsize;
    char segname[16];
    std::uint32_t vmaddr;
    std::uint32_t vmsize;
    std::uint32_t fileoff;
    std::uint32_t filesize;
    std::int32_t maxprot;
    std::int32_t initprot;
    std::uint32_t nsects;
    std::uint32_t flags;
};
struct segment_command_64 {
    std::uint32_t cmd;
    std::uint32_t cmdsize;
    char segname[16];
    std::uint64_t vmaddr;
    std::uint64_t vmsize;
    std::uint64_t fileoff;
    std::uint64_t filesize;
    std::int32_t maxprot;
    std::int32_t initprot;
    std::uint32_t nsects;
    std::uint32_t flags;
};
struct section {
    char sectname[16];
    char segname[16];
    std::uint32_t addr;
    std::uint32_t size;
    std::uint32_t offset;
    std::uint32_t align;
    std::uint32_t reloff;
    std::uint32_t nreloc;
    std::uint32_t flags;
    std::uint32_t reserved1;
    std::uint32_t reserved2;
};
struct section_64 {
    char sectname[16];
    char segname[16];
    std::uint64_t addr;
    std::uint64_t size;
    std::uint32_t offset;
    std::uint32_t align;
    std::uint32_t reloff;
    std::uint32_t nreloc;
    std::uint32_t flags;
    std::uint32_t reserved1;
    std::uint32_t reserved2;
    std::uint32_t reserved3;
};
static_assert(sizeof(fat_header) == 8 && sizeof(fat_arch) == 20);
static_assert(sizeof(mach_header) == 28 && sizeof(mach_header_64) == 32);
static_assert(sizeof(load_command) == 8);
static_assert(sizeof(segment_command) == 56 && sizeof(segment_command_64) == 72);
static_assert(sizeof(section) == 68 && sizeof(section_64) == 80);

// Real executables have a few dozen load commands and sections per slice. The
// cap only stops crafted universal files, whose slices may all start inside one
// long run of tiny load commands, from making the walk quadratic in the size.
constexpr std::uint32_t kMaxWalkSteps = 1u << 20;

class WalkBudget {
  public:
    bool spend() {
        if (left_ == 0) return false;
        --left_;
        return true;
    }

  private:
    std::uint32_t left_ = kMaxWalkSteps;
};

// Copies a structure out of the image; no value when it does not lie wholly
// inside. Copying also frees the reads from any alignment demands.
template <typename T>
std::optional<T> readAt(Image image, std::uint64_t offset) {
    if (offset > image.size() || image.size() - offset < sizeof(T)) return std::nullopt;
    T value;
    std::memcpy(&value, image.data() + offset, sizeof(T));
    return value;
}

std::uint32_t fromBigEndian(std::uint32_t value) {
    if constexpr (std::endian::native == std::endian::little) return __builtin_bswap32(value);
    return value;
}

std::optional<Bytes> copyRange(Image image, std::uint64_t offset, std::uint64_t size) {
    if (offset > image.size() || image.size() - offset < size) return std::nullopt;
    const auto* begin = image.data() + offset;
    return Bytes(begin, begin + size);
}

// A name field is 16 bytes, NUL-padded, and holds no NUL when the name fills it.
bool nameEquals(const char (&field)[16], std::string_view wanted) {
    return std::string_view(field, ::strnlen(field, sizeof(field))) == wanted;
}

template <typename Header, typename Segment, typename Section, std::uint32_t kSegmentCommand>
std::optional<Bytes> walkLoadCommands(Image image, std::string_view segmentName,
                                      std::string_view sectionName, WalkBudget& budget) {
    const auto header = readAt<Header>(image, 0);
    if (!header) return std::nullopt;
    std::uint64_t position = sizeof(Header);
    for (std::uint32_t step = 0; step < header->ncmds; ++step) {
        if (!budget.spend()) return std::nullopt;
        const auto command = readAt<load_command>(image, position);
        if (!command) return std::nullopt;
        // A command of size 0 is met again on every remaining step and never
        // leads to another command, so nothing can be found from here on.
        if (command->cmdsize == 0) return std::nullopt;
        if (command->cmd != kSegmentCommand) {
            position += command->cmdsize;
            continue;
        }
        const auto segment = readAt<Segment>(image, position);
        if (!segment) return std::nullopt;
        if (!nameEquals(segment->segname, segmentName) || segment->nsects == 0) {
            position += command->cmdsize;
            continue;
        }
        std::uint64_t sectionPosition = position + sizeof(Segment);
        for (std::uint32_t index = 0; index < segment->nsects; ++index) {
            if (!budget.spend()) return std::nullopt;
            const auto found = readAt<Section>(image, sectionPosition);
            if (!found) return std::nullopt;
            if (nameEquals(found->sectname, sectionName)) {
                // A 64-bit section's size is taken as its low 32 bits.
                return copyRange(image, found->offset, static_cast<std::uint32_t>(found->size));
            }
            sectionPosition += sizeof(Section);
        }
        // The walk goes on after the last section header, not after cmdsize.
        position = sectionPosition;
    }
    return std::nullopt;
}

std::optional<Bytes> TqMachOSectionFromMachOHeader32(Image image, std::string_view segmentName,
                                                     std::string_view sectionName,
                                                     WalkBudget& budget) {
    return walkLoadCommands<mach_header, segment_command, section, LC_SEGMENT>(image, segmentName,
                                                                               sectionName, budget);
}

std::optional<Bytes> TqMachOSectionFromMachOHeader64(Image image, std::string_view segmentName,
                                                     std::string_view sectionName,
                                                     WalkBudget& budget) {
    return walkLoadCommands<mach_header_64, segment_command_64, section_64, LC_SEGMENT_64>(
        image, segmentName, sectionName, budget);
}

// An image of the other byte order has a swapped magic and is not recognised.
std::optional<Bytes> TqMachOSectionFromMachOHeader(Image image, std::string_view segmentName,
                                                   std::string_view sectionName,
                                                   WalkBudget& budget) {
    const auto magic = readAt<std::uint32_t>(image, 0);
    if (magic == MH_MAGIC) {
        return TqMachOSectionFromMachOHeader32(image, segmentName, sectionName, budget);
    }
    if (magic == MH_MAGIC_64) {
        return TqMachOSectionFromMachOHeader64(image, segmentName, sectionName, budget);
    }
    return std::nullopt;
}

// No architecture is preferred: the first slice in table order that has the
// section wins. A slice that starts past the end of the file yields nothing,
// like any other slice that is not a host-order image.
std::optional<Bytes> sectionInUniversalFile(Image file, std::string_view segmentName,
                                            std::string_view sectionName, WalkBudget& budget) {
    const auto header = readAt<fat_header>(file, 0);
    if (!header) return std::nullopt;
    const std::uint32_t count = fromBigEndian(header->nfat_arch);
    for (std::uint32_t index = 0; index < count; ++index) {
        if (!budget.spend()) return std::nullopt;
        const auto arch =
            readAt<fat_arch>(file, sizeof(fat_header) + std::uint64_t{index} * sizeof(fat_arch));
        if (!arch) return std::nullopt;
        const std::uint32_t offset = fromBigEndian(arch->offset);
        if (offset >= file.size()) continue;
        auto found =
            TqMachOSectionFromMachOHeader(file.subspan(offset), segmentName, sectionName, budget);
        if (found) return found;
    }
    return std::nullopt;
}

// The NUL-terminated name at `offset` in a string table; no value when it
// starts outside the table or runs off its end.
std::optional<std::string_view> stringAt(Image table, std::uint64_t offset) {
    if (offset >= table.size()) return std::nullopt;
    const auto* start = reinterpret_cast<const char*>(table.data() + offset);
    const std::size_t room = table.size() - offset;
    const void* end = std::memchr(start, '\0', room);
    if (end == nullptr) return std::nullopt;
    return std::string_view(start, static_cast<const char*>(end) - start);
}

template <typename ElfHeader, typename SectionHeader>
std::optional<Bytes> elfSection(Image file, std::string_view name) {
    const auto header = readAt<ElfHeader>(file, 0);
    if (!header || header->e_shentsize < sizeof(SectionHeader)) return std::nullopt;
    const auto sectionHeader = [&](std::uint32_t index) -> std::optional<SectionHeader> {
        std::uint64_t position = 0;
        if (__builtin_add_overflow(header->e_shoff, std::uint64_t{index} * header->e_shentsize,
                                   &position)) {
            return std::nullopt;
        }
        return readAt<SectionHeader>(file, position);
    };
    if (header->e_shstrndx >= header->e_shnum) return std::nullopt;
    const auto names = sectionHeader(header->e_shstrndx);
    if (!names || names->sh_type == SHT_NOBITS || names->sh_offset > file.size() ||
        file.size() - names->sh_offset < names->sh_size) {
        return std::nullopt;
    }
    const Image table = file.subspan(names->sh_offset, names->sh_size);
    for (std::uint32_t index = 0; index < header->e_shnum; ++index) {
        const auto candidate = sectionHeader(index);
        if (!candidate) return std::nullopt;
        if (stringAt(table, candidate->sh_name) != name) continue;
        // A section without file contents (like .bss) has nothing to read.
        if (candidate->sh_type == SHT_NOBITS) return std::nullopt;
        return copyRange(file, candidate->sh_offset, candidate->sh_size);
    }
    return std::nullopt;
}

bool isElf(Image file) {
    return file.size() >= EI_NIDENT && std::memcmp(file.data(), ELFMAG, SELFMAG) == 0;
}

// ELF has no segment names in sections: "SEGMENT,SECTION" is the section's name,
// as the compiler's section attribute writes it. Only host byte order is read.
std::optional<Bytes> sectionInElfFile(Image file, std::string_view segmentName,
                                      std::string_view sectionName) {
    constexpr unsigned char hostData =
        std::endian::native == std::endian::little ? ELFDATA2LSB : ELFDATA2MSB;
    if (file[EI_DATA] != hostData) return std::nullopt;
    std::string name(segmentName);
    name += ',';
    name += sectionName;
    if (file[EI_CLASS] == ELFCLASS32) return elfSection<Elf32_Ehdr, Elf32_Shdr>(file, name);
    if (file[EI_CLASS] == ELFCLASS64) return elfSection<Elf64_Ehdr, Elf64_Shdr>(file, name);
    return std::nullopt;
}

}  // namespace

std::optional<std::vector<std::uint8_t>> TqPlistExtractor::TqMachOSection(
    std::span<const std::uint8_t> file, std::string_view segmentName,
    std::string_view sectionName) {
    try {
        WalkBudget budget;
        const auto magic = readAt<std::uint32_t>(file, 0);
        if (magic && fromBigEndian(*magic) == FAT_MAGIC) {
            return sectionInUniversalFile(file, segmentName, sectionName, budget);
        }
        if (isElf(file)) return sectionInElfFile(file, segmentName, sectionName);
        return TqMachOSectionFromMachOHeader(file, segmentName, sectionName, budget);
    } catch (const std::exception&) {
        return std::nullopt;  // out of memory for the copy
    }
}

std::optional<std::vector<std::uint8_t>> TqPlistExtractor::TqMachOSection(
    const std::filesystem::path& file, std::string_view segmentName, std::string_view sectionName) {
    const auto mapped = MappedFile::open(file);
    if (!mapped) return std::nullopt;
    return TqMachOSection(mapped->bytes(), segmentName, sectionName);
}

std::optional<PlistValue> TqPlistExtractor::TqExtractPlist(std::span<const std::uint8_t> file,
                                                           std::string_view sectionName) {
    try {
        const auto bytes = TqMachOSection(file, "__TEXT", sectionName);
        if (!bytes) return std::nullopt;
        return parsePropertyList(*bytes);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

std::optional<PlistValue> TqPlistExtractor::TqExtractPlist(const std::filesystem::path& file,
                                                           std::string_view sectionName) {
    const auto mapped = MappedFile::open(file);
    if (!mapped) return std::nullopt;
    return TqExtractPlist(mapped->bytes(), sectionName);
}

}  // namespace kora
