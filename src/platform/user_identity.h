#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace kora {

// A user's ids and groups, looked up before a fork: between fork and exec a
// process with threads may only make plain system calls, and reading the user
// database is not one of them.
struct UserIdentity {
    uid_t user = 0;
    gid_t group = 0;
    std::vector<gid_t> groups;
    std::string name;
    std::string home;
    std::string shell;
};

// The identity from the user database, or none for an unknown uid.
std::optional<UserIdentity> lookUpUser(uid_t user);

// In a forked child: takes on the identity's groups, gid and uid, in that order
// (the uid last, since afterwards nothing else may be changed). Returns 0, or
// the errno of the step that failed. Async-signal-safe.
int becomeUser(const UserIdentity& identity);

}  // namespace kora
