#include "platform/staged_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace kora {
namespace {

std::error_code lastError() {
    return {errno, std::generic_category()};
}

bool writeAll(int fd, std::string_view content) {
    while (!content.empty()) {
        const ssize_t n = ::write(fd, content.data(), content.size());
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        content.remove_prefix(static_cast<std::size_t>(n));
    }
    return true;
}

}  // namespace

StagedFile::StagedFile(std::filesystem::path target, std::string_view content)
    : target_(std::move(target)) {
    std::string name = target_.parent_path() / ("." + target_.filename().string() + ".XXXXXX");
    const int fd = ::mkstemp(name.data());
    if (fd < 0) {
        error_ = lastError();
        return;
    }
    staged_ = name;
    const bool written = ::fchmod(fd, 0644) == 0 && writeAll(fd, content) && ::fsync(fd) == 0;
    if (!written) error_ = lastError();
    if (::close(fd) != 0 && !error_) error_ = lastError();
}

StagedFile::StagedFile(StagedFile&& other) noexcept
    : target_(std::move(other.target_)),
      staged_(std::exchange(other.staged_, {})),
      error_(other.error_) {}

StagedFile::~StagedFile() {
    if (!staged_.empty()) ::unlink(staged_.c_str());
}

bool StagedFile::commit() {
    if (error_ || staged_.empty()) return false;
    if (::rename(staged_.c_str(), target_.c_str()) != 0) {
        error_ = lastError();
        return false;
    }
    staged_.clear();
    return true;
}

}  // namespace kora
