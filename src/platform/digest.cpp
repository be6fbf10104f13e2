#include "platform/digest.h"

#include <fcntl.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <vector>

namespace kora {
namespace {

using DigestContext = std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)>;

// Large enough that system calls cost nothing next to hashing, small enough to
// stay in the cache (bench/hash_bench).
constexpr std::size_t kReadBufferSize = 256 << 10;

std::string upperHex(const unsigned char* bytes, unsigned int length) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(length * 2);
    for (unsigned int i = 0; i < length; ++i) {
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 0x0F];
    }
    return text;
}

DigestContext startDigest(const EVP_MD* type) {
    // Plain digests need no configuration. Not reading the system's openssl.cnf
    // saves 0.6 MB of resident memory and keeps a system file from changing how
    // the daemon checks archives.
    static const bool initialised = OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CONFIG, nullptr) == 1;
    if (!initialised) std::abort();
    DigestContext context(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
    if (!context || EVP_DigestInit_ex(context.get(), type, nullptr) != 1) std::abort();
    return context;
}

std::string finishDigest(EVP_MD_CTX* context) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_DigestFinal_ex(context, digest, &length) != 1) std::abort();
    return upperHex(digest, length);
}

// Feeds the whole file to the digest; false when opening or any read failed.
bool digestFile(EVP_MD_CTX* context, const std::filesystem::path& file) {
    // Non-blocking open, so that a FIFO does not hold the daemon; reads of a
    // regular file are not affected by the flag.
    const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return false;
    ::posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
    std::vector<unsigned char> buffer(kReadBufferSize);
    bool ok = true;
    for (;;) {
        const ssize_t count = ::read(fd, buffer.data(), buffer.size());
        if (count == 0) break;
        if (count < 0) {
            if (errno == EINTR) continue;
            ok = false;
            break;
        }
        EVP_DigestUpdate(context, buffer.data(), static_cast<std::size_t>(count));
    }
    ::close(fd);
    return ok;
}

}  // namespace

std::string sha1HexOfFile(const std::filesystem::path& file) {
    DigestContext context = startDigest(EVP_sha1());
    if (!digestFile(context.get(), file)) {
        // Start over, so that a read failing half-way does not leave a digest
        // of part of the file.
        context = startDigest(EVP_sha1());
    }
    return finishDigest(context.get());
}

std::string md5Hex(std::span<const std::uint8_t> bytes) {
    DigestContext context = startDigest(EVP_md5());
    EVP_DigestUpdate(context.get(), bytes.data(), bytes.size());
    return finishDigest(context.get());
}

}  // namespace kora
