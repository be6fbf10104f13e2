#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <utility>

namespace kora {

// Owns an open file descriptor and closes it on every path.
class FileDescriptor {
public:
    explicit FileDescriptor(int fd) : fd_(fd) {}
    FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&&) = delete;
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor();

    int get() const { return fd_; }
    // Closes now and tells whether everything written reached the file.
    bool close();

private:
    int fd_;
};

struct RegularFile {
    FileDescriptor fd;
    std::uint64_t size;
};

// Opens a file for reading only when it is a regular file, and never waits:
// a FIFO or a device under a name a client chose would otherwise block the
// daemon. No value for anything else.
std::optional<RegularFile> openRegularFile(const std::filesystem::path& path);

// Writes all of `data`, going on after interruptions; false on an error. Plain
// system calls only, so a forked child may use it too.
bool writeAll(int fd, const char* data, std::size_t size);

// Creates `path` for writing (mode 0644 before the umask) only when nothing is
// there, not even a symbolic link: a link planted at the name is never
// followed. No value, with errno set, otherwise.
std::optional<FileDescriptor> createNewFile(const std::filesystem::path& path);

}  // namespace kora
