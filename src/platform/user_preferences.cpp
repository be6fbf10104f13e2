#include "platform/user_preferences.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <random>
#include <string>
#include <vector>

#include "platform/regular_file.h"
#include "platform/user_identity.h"

namespace kora {
namespace {

namespace fs = std::filesystem;

// The rights a home's files are used with: its owner's, with the groups the
// user database gives; an owner the database does not know gets the home's
// group alone.
std::optional<UserIdentity> ownerOfHome(const fs::path& home) {
    struct stat status {};
    if (::stat(home.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return std::nullopt;
    if (std::optional<UserIdentity> known = lookUpUser(status.st_uid)) return known;
    UserIdentity stranger;
    stranger.user = status.st_uid;
    stranger.group = status.st_gid;
    stranger.groups = {status.st_gid};
    return stranger;
}

// --- What the child does, with the user's rights. Plain system calls only.

// Opens a regular file, never through a symbolic link, and never waits on a FIFO.
int openRegular(const char* file, int flags, struct stat& status) {
    const int fd = ::open(file, flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return -1;
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        ::close(fd);
        return -1;
    }
    return fd;
}

bool copyFileTo(const char* file, int out) {
    struct stat status {};
    const int fd = openRegular(file, O_RDONLY, status);
    if (fd < 0) return false;
    char buffer[65536];
    for (;;) {
        const ssize_t count = ::read(fd, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0 || !writeAll(out, buffer, static_cast<std::size_t>(count))) {
            ::close(fd);
            return count == 0;
        }
    }
}

// Writes a new file beside the old one, gives it the old owner, group and mode,
// and renames it over the old one, so a crash leaves either file whole.
bool replaceWithCopy(const char* file, const char* temporary, const std::string& text,
                     const struct stat& old) {
    const int out = ::open(temporary, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (out < 0) return false;
    const bool ok = writeAll(out, text.data(), text.size()) &&
                    ::fchown(out, old.st_uid, old.st_gid) == 0 &&
                    ::fchmod(out, old.st_mode & 07777) == 0 && ::fsync(out) == 0;
    ::close(out);
    if (ok && ::rename(temporary, file) == 0) return true;
    ::unlink(temporary);
    return false;
}

// Rewrites the file where it is: used when the user may write the file but
// could not give a new one the old owner or group.
bool rewriteInPlace(const char* file, const std::string& text) {
    struct stat status {};
    const int fd = openRegular(file, O_WRONLY, status);
    if (fd < 0) return false;
    const bool ok = writeAll(fd, text.data(), text.size()) &&
                    ::ftruncate(fd, static_cast<off_t>(text.size())) == 0 && ::fsync(fd) == 0;
    ::close(fd);
    return ok;
}

bool writeFile(const char* file, const char* temporary, const std::string& text) {
    struct stat old {};
    const int fd = openRegular(file, O_RDONLY, old);
    if (fd < 0) return false;
    ::close(fd);
    return replaceWithCopy(file, temporary, text, old) || rewriteInPlace(file, text);
}

// --- The parent side.

// Forks a child that becomes `identity` and exits with `work()`'s verdict.
// `whileRunning` runs in the parent before the child is reaped.
template <typename Work, typename WhileRunning>
bool runAsUser(const UserIdentity& identity, Work work, WhileRunning whileRunning) {
    const pid_t child = ::fork();
    if (child < 0) return false;
    if (child == 0) ::_exit(becomeUser(identity) == 0 && work() ? 0 : 1);
    whileRunning();
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Reads what the child sends, up to one byte past the property-list limit.
std::vector<std::uint8_t> readPipe(int fd) {
    std::vector<std::uint8_t> bytes;
    std::uint8_t buffer[65536];
    while (bytes.size() <= kPlistMaxBytes) {
        const ssize_t count = ::read(fd, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        bytes.insert(bytes.end(), buffer, buffer + count);
    }
    return bytes;
}

// A name beside `file` that nobody can have predicted.
fs::path temporaryNameFor(const fs::path& file) {
    static constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    std::random_device random;
    std::string suffix(12, 'x');
    for (char& letter : suffix) letter = kLetters[random() % (sizeof kLetters - 1)];
    return file.parent_path() / ("." + file.filename().string() + ".korad-" + suffix);
}

}  // namespace

std::optional<PlistDictionary> LiveUserPreferences::readDictionary(const fs::path& home,
                                                                   const fs::path& file) {
    const std::optional<UserIdentity> owner = ownerOfHome(home);
    if (!owner) return std::nullopt;
    int pipe[2];
    if (::pipe2(pipe, O_CLOEXEC) != 0) return std::nullopt;
    std::vector<std::uint8_t> bytes;
    const bool read = runAsUser(
        *owner,
        [&] {
            ::close(pipe[0]);
            return copyFileTo(file.c_str(), pipe[1]);
        },
        [&] {
            ::close(pipe[1]);
            bytes = readPipe(pipe[0]);
            // Closing stops a child that sends more than the limit.
            ::close(pipe[0]);
        });
    if (!read || bytes.size() > kPlistMaxBytes) return std::nullopt;
    std::optional<PlistValue> value = parsePropertyList(bytes);
    if (!value || !value->is<PlistDictionary>()) return std::nullopt;
    return std::move(*value->as<PlistDictionary>());
}

bool LiveUserPreferences::writeDictionary(const fs::path& home, const fs::path& file,
                                          const PlistDictionary& dictionary) {
    const std::optional<UserIdentity> owner = ownerOfHome(home);
    if (!owner) return false;
    const std::string text = propertyListXml(dictionary);
    const fs::path temporary = temporaryNameFor(file);
    return runAsUser(
        *owner, [&] { return writeFile(file.c_str(), temporary.c_str(), text); }, [] {});
}

}  // namespace kora
