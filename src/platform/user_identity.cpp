#include "platform/user_identity.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>

namespace kora {
namespace {

std::vector<gid_t> groupsOf(const char* name, gid_t group) {
    int count = 32;
    std::vector<gid_t> groups;
    for (;;) {
        groups.resize(static_cast<std::size_t>(count));
        const int previous = count;
        if (::getgrouplist(name, group, groups.data(), &count) >= 0) break;
        if (count <= previous) count = previous * 2;
    }
    groups.resize(static_cast<std::size_t>(count));
    return groups;
}

}  // namespace

std::optional<UserIdentity> lookUpUser(uid_t user) {
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    while (::getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found) == ERANGE) {
        buffer.resize(buffer.size() * 2);
    }
    if (found == nullptr) return std::nullopt;
    UserIdentity identity;
    identity.user = user;
    identity.group = entry.pw_gid;
    identity.groups = groupsOf(entry.pw_name, entry.pw_gid);
    identity.name = entry.pw_name;
    identity.home = entry.pw_dir != nullptr && *entry.pw_dir != '\0' ? entry.pw_dir : "/";
    identity.shell = entry.pw_shell != nullptr && *entry.pw_shell != '\0' ? entry.pw_shell : "/bin/sh";
    return identity;
}

int becomeUser(const UserIdentity& identity) {
    if (::setgroups(identity.groups.size(), identity.groups.data()) != 0) return errno;
    if (::setgid(identity.group) != 0) return errno;
    if (::setuid(identity.user) != 0) return errno;
    return 0;
}

}  // namespace kora
