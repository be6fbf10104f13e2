#include "platform/mapped_file.h"

#include <sys/mman.h>

#include <cstdint>
#include <limits>
#include <utility>

#include "platform/regular_file.h"

namespace kora {

std::optional<MappedFile> MappedFile::open(const std::filesystem::path& path) {
    const std::optional<RegularFile> file = openRegularFile(path);
    if (!file || file->size > std::numeric_limits<std::size_t>::max()) return std::nullopt;
    const auto size = static_cast<std::size_t>(file->size);
    if (size == 0) return MappedFile(nullptr, 0);

    void* data = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file->fd.get(), 0);
    if (data == MAP_FAILED) return std::nullopt;
    return MappedFile(static_cast<const std::uint8_t*>(data), size);
}

MappedFile::MappedFile(MappedFile&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}

MappedFile& MappedFile::operator=(MappedFile&& other) noexcept {
    if (this != &other) {
        unmap();
        data_ = std::exchange(other.data_, nullptr);
        size_ = std::exchange(other.size_, 0);
    }
    return *this;
}

MappedFile::~MappedFile() {
    unmap();
}

void MappedFile::unmap() noexcept {
    if (data_ != nullptr) ::munmap(const_cast<std::uint8_t*>(data_), size_);
    data_ = nullptr;
    size_ = 0;
}

}  // namespace kora
