#include "debian_package.h"

#include <unistd.h>

#include <cstring>
#include <optional>
#include <string_view>

#include "platform/regular_file.h"

namespace kora {
namespace {

constexpr std::string_view kDebianMagic = "!<arch>\ndebian-binary";

}  // namespace

PackageKind packageKind(const std::filesystem::path& file) {
    std::error_code error;
    const auto type = std::filesystem::status(file, error).type();
    if (type != std::filesystem::file_type::regular)
        return type == std::filesystem::file_type::not_found || error ? PackageKind::Unreadable
                                                                      : PackageKind::Other;
    const std::optional<RegularFile> opened = openRegularFile(file);
    if (!opened) return PackageKind::Unreadable;
    char head[kDebianMagic.size()];
    std::size_t have = 0;
    while (have < sizeof head) {
        const ssize_t n = ::read(opened->fd.get(), head + have, sizeof head - have);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return PackageKind::Unreadable;
        if (n == 0) break;
        have += static_cast<std::size_t>(n);
    }
    return std::string_view(head, have) == kDebianMagic ? PackageKind::Debian : PackageKind::Other;
}

std::vector<std::string> dpkgInstallCommand(const std::filesystem::path& package,
                                            const std::filesystem::path& target) {
    return {"/usr/bin/dpkg", "--root=" + target.string(), "-i", package.string()};
}

std::vector<std::string> dpkgEnvironment() {
    return {
        // dpkg refuses to run unless it finds ldconfig and start-stop-daemon on
        // PATH, and a root tool does not search a PATH that its caller chose.
        "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
        // Nobody answers questions: standard input is the daemon's pipe.
        "DEBIAN_FRONTEND=noninteractive",
    };
}

}  // namespace kora
