#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace kora::test {

// Writes stored zip archives byte by byte, so a test can make entries no zip tool would.
class ZipWriter {
  public:
    ZipWriter& file(std::string name, std::string content, std::uint32_t mode = 0644) {
        entries_.push_back({std::move(name), std::move(content), S_IFREG | mode});
        return *this;
    }
    ZipWriter& folder(std::string name) {
        entries_.push_back({std::move(name), "", S_IFDIR | 0755});
        return *this;
    }
    ZipWriter& symlink(std::string name, std::string target) {
        entries_.push_back({std::move(name), std::move(target), S_IFLNK | 0777});
        return *this;
    }

    void write(const std::filesystem::path& path) const {
        std::ofstream(path, std::ios::binary) << bytes();
    }

    std::string bytes() const {
        std::string central;
        std::string local;
        for (const Entry& entry : entries_) {
            const std::uint32_t offset = static_cast<std::uint32_t>(local.size());
            const std::uint32_t crc = crc32(entry.content);
            const auto size = static_cast<std::uint32_t>(entry.content.size());
            put32(local, 0x04034b50);
            putCommon(local, entry, crc, size);
            put16(local, 0);  // extra field length
            local += entry.name + entry.content;

            put32(central, 0x02014b50);
            put16(central, (3 << 8) | 20);  // made on Unix, so the mode counts
            putCommon(central, entry, crc, size);
            for (int i = 0; i < 4; ++i) put16(central, 0);  // extra, comment, disk, attributes
            put32(central, entry.mode << 16);
            put32(central, offset);
            central += entry.name;
        }
        std::string end;
        put32(end, 0x06054b50);
        put32(end, 0);  // disk numbers
        put16(end, static_cast<std::uint16_t>(entries_.size()));
        put16(end, static_cast<std::uint16_t>(entries_.size()));
        put32(end, static_cast<std::uint32_t>(central.size()));
        put32(end, static_cast<std::uint32_t>(local.size()));
        put16(end, 0);
        return local + central + end;
    }

  private:
    struct Entry {
        std::string name;
        std::string content;
        std::uint32_t mode;
    };

    static void put16(std::string& out, std::uint32_t value) {
        out += static_cast<char>(value & 0xff);
        out += static_cast<char>((value >> 8) & 0xff);
    }
    static void put32(std::string& out, std::uint32_t value) {
        put16(out, value & 0xffff);
        put16(out, value >> 16);
    }
    // Version needed, flags, method (stored), time, date, CRC, sizes, name length.
    static void putCommon(std::string& out, const Entry& entry, std::uint32_t crc, std::uint32_t size) {
        for (std::uint32_t field : {20u, 0u, 0u, 0u, (45u << 9) | (1u << 5) | 1u}) put16(out, field);  // date 2025-01-01
        put32(out, crc);
        put32(out, size);
        put32(out, size);
        put16(out, static_cast<std::uint32_t>(entry.name.size()));
    }
    static std::uint32_t crc32(const std::string& bytes) {
        std::uint32_t crc = 0xffffffff;
        for (unsigned char byte : bytes) {
            crc ^= byte;
            for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0xedb88320 & (0u - (crc & 1)));
        }
        return ~crc;
    }

    std::vector<Entry> entries_;
};

}  // namespace kora::test
