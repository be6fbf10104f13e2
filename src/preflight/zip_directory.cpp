#include "preflight/zip_directory.h"

#include <sys/stat.h>
#include <zlib.h>

#include <cstring>

namespace kora {
namespace {

constexpr std::uint32_t kEndSignature = 0x06054b50;
constexpr std::uint32_t kCentralSignature = 0x02014b50;
constexpr std::uint32_t kLocalSignature = 0x04034b50;
constexpr std::size_t kEndSize = 22;
constexpr std::size_t kCentralSize = 46;
constexpr std::size_t kLocalSize = 30;
constexpr std::uint16_t kStored = 0;
constexpr std::uint16_t kDeflated = 8;
constexpr int kMadeOnUnix = 3;

// Little-endian fields, read only after the caller checked the bounds.
std::uint16_t read16(const std::uint8_t* at) { return std::uint16_t(at[0] | at[1] << 8); }
std::uint32_t read32(const std::uint8_t* at) { return read16(at) | std::uint32_t(read16(at + 2)) << 16; }

std::optional<std::string> inflateRaw(std::span<const std::uint8_t> input, std::size_t size) {
    std::string output(size, '\0');
    z_stream stream{};
    if (inflateInit2(&stream, -MAX_WBITS) != Z_OK) return std::nullopt;
    stream.next_in = const_cast<Bytef*>(input.data());
    stream.avail_in = static_cast<uInt>(input.size());
    stream.next_out = reinterpret_cast<Bytef*>(output.data());
    stream.avail_out = static_cast<uInt>(output.size());
    const int result = inflate(&stream, Z_FINISH);
    const bool complete = result == Z_STREAM_END && stream.total_out == size;
    inflateEnd(&stream);
    return complete ? std::optional(output) : std::nullopt;
}

}  // namespace

std::optional<ZipDirectory> ZipDirectory::open(const std::filesystem::path& archive, std::string& error) {
    std::optional<MappedFile> file = MappedFile::open(archive);
    if (!file) {
        error = "it cannot be opened as a regular file";
        return std::nullopt;
    }
    ZipDirectory directory(std::move(*file));
    if (!directory.readEntries(error)) return std::nullopt;
    return directory;
}

bool ZipDirectory::readEntries(std::string& error) {
    const std::span<const std::uint8_t> bytes = file_.bytes();
    // The end record sits in the last 64 KiB + 22 bytes (its comment is at most 64 KiB).
    std::optional<std::size_t> end;
    for (std::size_t at = bytes.size() >= kEndSize ? bytes.size() - kEndSize + 1 : 0; at-- > 0;) {
        if (bytes.size() - at > kEndSize + 0xffff) break;
        if (read32(&bytes[at]) == kEndSignature) {
            end = at;
            break;
        }
    }
    if (!end) {
        error = "it is not a zip archive (no end of central directory)";
        return false;
    }
    const std::size_t count = read16(&bytes[*end + 10]);
    std::size_t at = read32(&bytes[*end + 16]);
    for (std::size_t index = 0; index < count; ++index) {
        if (at > bytes.size() || bytes.size() - at < kCentralSize || read32(&bytes[at]) != kCentralSignature) {
            error = "its central directory is truncated or damaged";
            return false;
        }
        const std::uint8_t* header = &bytes[at];
        const std::size_t nameLength = read16(header + 28);
        const std::size_t recordSize = kCentralSize + nameLength + read16(header + 30) + read16(header + 32);
        if (bytes.size() - at < recordSize) {
            error = "its central directory is truncated or damaged";
            return false;
        }
        Entry entry;
        entry.name.assign(reinterpret_cast<const char*>(header + kCentralSize), nameLength);
        entry.symbolicLink = header[5] == kMadeOnUnix && S_ISLNK(read32(header + 38) >> 16);
        entry.method = read16(header + 10);
        entry.compressedSize = read32(header + 20);
        entry.size = read32(header + 24);
        entry.localHeaderOffset = read32(header + 42);
        entries_.push_back(std::move(entry));
        at += recordSize;
    }
    return true;
}

std::optional<std::string> ZipDirectory::contents(const Entry& entry, std::size_t maxBytes) const {
    const std::span<const std::uint8_t> bytes = file_.bytes();
    const std::size_t at = entry.localHeaderOffset;
    if (entry.size > maxBytes || at > bytes.size() || bytes.size() - at < kLocalSize ||
        read32(&bytes[at]) != kLocalSignature) {
        return std::nullopt;
    }
    const std::size_t start = at + kLocalSize + read16(&bytes[at + 26]) + read16(&bytes[at + 28]);
    if (start > bytes.size() || bytes.size() - start < entry.compressedSize) return std::nullopt;
    const std::span<const std::uint8_t> data = bytes.subspan(start, entry.compressedSize);
    if (entry.method == kStored && entry.compressedSize == entry.size) {
        return std::string(data.begin(), data.end());
    }
    if (entry.method == kDeflated) return inflateRaw(data, entry.size);
    return std::nullopt;
}

}  // namespace kora
