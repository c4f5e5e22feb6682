/// Several users at once: what one of them does in a process of his own. Only the superuser can play them.
#pragma once

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <vector>

#include "tests/support/ChildProcess.hpp"

namespace test {

struct User {
    uid_t id;
    gid_t group;
    std::vector<gid_t> groups;  ///< others that he is in
    mode_t mask = 022;
};

/// Makes this process one of `user`, for good. His settings are not those of who runs the tests, which he may not read.
inline void become(const User& user) {
    unsetenv("HOME");
    unsetenv("XDG_CONFIG_HOME");
    if (setgroups(user.groups.size(), user.groups.data()) != 0 || setgid(user.group) != 0 || setuid(user.id) != 0)
        throw std::runtime_error("cannot become another user");
    umask(user.mask);
}

/// @return as `ChildProcess::wait`: 0 unless `work` throws
template <class Work>
int runAs(const User& user, const Work& work) {
    return ChildProcess([&] {
               become(user);
               work();
           })
        .wait();
}

}  // namespace test
