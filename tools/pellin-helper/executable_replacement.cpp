#include "executable_replacement.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "platform/logging.h"
#include "platform/regular_file.h"
#include "update/tq_plist_extractor.h"

namespace kora {
namespace {

namespace fs = std::filesystem;

// A step that failed; install() logs it and answers false.
class Refusal : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

[[noreturn]] void failWithErrno(const std::string& what) {
    throw Refusal(what + ": " + std::strerror(errno));
}

// The new executable under a temporary name beside the target. Removed when
// the object goes, unless it was renamed into place.
class TemporaryFile {
  public:
    explicit TemporaryFile(const fs::path& folder, const std::string& name) {
        std::string pattern = (folder / ("." + name + ".new-XXXXXX")).string();
        const int fd = ::mkostemp(pattern.data(), O_CLOEXEC);
        if (fd < 0) failWithErrno("cannot create a file in " + loggable(folder.string()));
        fd_.emplace(fd);
        path_ = pattern;
    }
    ~TemporaryFile() {
        if (!path_.empty()) ::unlink(path_.c_str());
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    int fd() const { return fd_->get(); }
    const fs::path& path() const { return path_; }
    void renameTo(const fs::path& destination) {
        if (::rename(path_.c_str(), destination.c_str()) != 0)
            failWithErrno("cannot rename the new executable to " + loggable(destination.string()));
        path_.clear();
    }

  private:
    std::optional<FileDescriptor> fd_;
    fs::path path_;
};

void writeAll(int fd, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) failWithErrno("cannot write the new executable");
        data += written;
        size -= static_cast<std::size_t>(written);
    }
}

void copyInto(const fs::path& source, int destination) {
    const auto file = openRegularFile(source);
    if (!file) throw Refusal(loggable(source.string()) + " is not a readable regular file");
    if (file->size > ExecutableReplacement::kMaxExecutableBytes)
        throw Refusal(loggable(source.string()) + " is too large for an executable (" +
                      std::to_string(file->size) + " bytes)");
    std::vector<char> buffer(1024 * 1024);
    std::uint64_t total = 0;
    for (;;) {
        const ssize_t got = ::read(file->fd.get(), buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) failWithErrno("cannot read " + loggable(source.string()));
        if (got == 0) break;
        total += static_cast<std::uint64_t>(got);
        // The file may grow while it is read; the cap holds all the same.
        if (total > ExecutableReplacement::kMaxExecutableBytes)
            throw Refusal(loggable(source.string()) + " grew too large while it was read");
        writeAll(destination, buffer.data(), static_cast<std::size_t>(got));
    }
    if (::fsync(destination) != 0) failWithErrno("cannot flush the new executable to disk");
}

void checkIdentifier(const fs::path& copy, const fs::path& shownAs, const std::string& identifier) {
    const auto description = TqPlistExtractor::TqExtractPlist(copy, "__info_plist");
    const auto* dictionary = description ? description->as<PlistDictionary>() : nullptr;
    if (dictionary == nullptr)
        throw Refusal(loggable(shownAs.string()) +
                      " is not an executable with an embedded bundle description");
    const auto found = dictionary->string("CFBundleIdentifier");
    if (found != identifier)
        throw Refusal(loggable(shownAs.string()) + " is the executable of " +
                      (found ? loggable(*found) : std::string("no identifier")) + ", not of " +
                      loggable(identifier));
}

// A rename is durable only once its folder is flushed.
void syncFolder(const fs::path& folder) {
    FileDescriptor fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd.get() < 0 || ::fsync(fd.get()) != 0)
        logInfo("Cannot flush the folder %s: %s", loggable(folder.string()).c_str(),
                std::strerror(errno));
}

bool isRegularFile(const fs::path& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

ExecutableReplacement::ExecutableReplacement(fs::path target) : target_(std::move(target)) {}

fs::path ExecutableReplacement::kept() const {
    fs::path kept = target_;
    kept += ".old";
    return kept;
}

bool ExecutableReplacement::install(const std::string& identifier, const fs::path& newExecutable) {
    try {
        // Without the current executable there would be nothing to go back to.
        if (!isRegularFile(target_))
            throw Refusal("there is no executable at " + loggable(target_.string()) + " to replace");
        TemporaryFile copy(target_.parent_path(), target_.filename().string());
        copyInto(newExecutable, copy.fd());
        checkIdentifier(copy.path(), newExecutable, identifier);
        if (::fchmod(copy.fd(), 0755) != 0) failWithErrno("cannot make the new file executable");

        keepCurrent();
        copy.renameTo(target_);
        syncFolder(target_.parent_path());
        logInfo("Installed %s as %s; the previous executable is kept as %s",
                loggable(newExecutable.string()).c_str(), loggable(target_.string()).c_str(),
                loggable(kept().string()).c_str());
        return true;
    } catch (const std::exception& failure) {
        logInfo("Will not install the new daemon: %s", failure.what());
        return false;
    }
}

// A hard link keeps the current executable without a moment in which the
// target path is missing, and the rename replaces an earlier kept one only once
// the link exists.
void ExecutableReplacement::keepCurrent() const {
    fs::path link = target_.parent_path() / ("." + target_.filename().string() + ".keep");
    if (::unlink(link.c_str()) != 0 && errno != ENOENT)
        failWithErrno("cannot remove the stale " + loggable(link.string()));
    if (::link(target_.c_str(), link.c_str()) != 0)
        failWithErrno("cannot keep the current executable");
    if (::rename(link.c_str(), kept().c_str()) != 0) {
        const int error = errno;
        ::unlink(link.c_str());
        errno = error;
        failWithErrno("cannot keep the current executable as " + loggable(kept().string()));
    }
}

bool ExecutableReplacement::rollBack() {
    if (!isRegularFile(kept())) {
        logInfo("Cannot put the previous executable back: %s is missing",
                loggable(kept().string()).c_str());
        return false;
    }
    if (::rename(kept().c_str(), target_.c_str()) != 0) {
        logInfo("Cannot put %s back as %s: %s", loggable(kept().string()).c_str(),
                loggable(target_.string()).c_str(), std::strerror(errno));
        return false;
    }
    syncFolder(target_.parent_path());
    logInfo("Put the previous executable back as %s", loggable(target_.string()).c_str());
    return true;
}

}  // namespace kora
