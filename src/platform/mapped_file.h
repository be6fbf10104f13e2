#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>

namespace kora {

// A whole regular file mapped into memory, read-only and private. The mapping
// lives as long as the object; the file descriptor is closed as soon as the
// mapping exists, since a mapping does not need it.
class MappedFile {
  public:
    // No value when the path cannot be opened, is not a regular file (a folder,
    // a device), or cannot be sized or mapped. An empty file gives an object
    // with no bytes: the system refuses to map zero bytes, so none is made.
    static std::optional<MappedFile> open(const std::filesystem::path& path);

    MappedFile(MappedFile&& other) noexcept;
    MappedFile& operator=(MappedFile&& other) noexcept;
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;
    ~MappedFile();

    std::span<const std::uint8_t> bytes() const { return {data_, size_}; }

  private:
    MappedFile(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
    void unmap() noexcept;

    const std::uint8_t* data_ = nullptr;
    std::size_t size_ = 0;
};

}  // namespace kora
