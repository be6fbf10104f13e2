#include "platform/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace kora {

FileDescriptor::~FileDescriptor() {
    if (fd_ >= 0) ::close(fd_);
}

bool FileDescriptor::close() {
    // Linux releases the descriptor even when close reports an error: never
    // retry it.
    return ::close(std::exchange(fd_, -1)) == 0;
}

std::optional<RegularFile> openRegularFile(const std::filesystem::path& path) {
    // Non-blocking, so that opening a FIFO returns at once instead of waiting
    // for a writer; it is then refused as not regular.
    FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (fd.get() < 0) return std::nullopt;
    struct stat status {};
    if (::fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size < 0) {
        return std::nullopt;
    }
    return RegularFile{std::move(fd), static_cast<std::uint64_t>(status.st_size)};
}

bool writeAll(int fd, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        data += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

std::optional<FileDescriptor> createNewFile(const std::filesystem::path& path) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0) return std::nullopt;
    return std::optional<FileDescriptor>(std::in_place, fd);
}

}  // namespace kora
