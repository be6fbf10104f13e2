#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/mapped_file.h"

namespace kora {

// The entries of a zip archive as its central directory lists them, read
// without unpacking anything, so that names no unpacker would accept can be
// inspected as they are.
class ZipDirectory {
  public:
    struct Entry {
        std::string name;
        bool symbolicLink = false;
        std::uint16_t method = 0;
        std::uint32_t compressedSize = 0;
        std::uint32_t size = 0;
        std::uint32_t localHeaderOffset = 0;
    };

    // The archive's directory, or none with `error` saying why (unreadable,
    // not a zip archive, a directory that lies outside the file).
    static std::optional<ZipDirectory> open(const std::filesystem::path& archive, std::string& error);

    const std::vector<Entry>& entries() const { return entries_; }

    // The contents of an entry, stored or deflated, when it is at most
    // `maxBytes` long; none when it cannot be read.
    std::optional<std::string> contents(const Entry& entry, std::size_t maxBytes) const;

  private:
    explicit ZipDirectory(MappedFile file) : file_(std::move(file)) {}
    bool readEntries(std::string& error);

    MappedFile file_;
    std::vector<Entry> entries_;
};

}  // namespace kora
