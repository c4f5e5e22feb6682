/// Tests of permissions: for the superuser, as whom automatic builds run, no file is read-only.
#pragma once

#include <unistd.h>

#include <stdexcept>

namespace test {

/// While it lives, the process has the effective user "nobody", if it was the superuser before.
class UnprivilegedUser {
public:
    UnprivilegedUser() : user_(geteuid()), group_(getegid()) {
        if (user_ == 0 && (setegid(nobody) != 0 || seteuid(nobody) != 0))
            throw std::runtime_error("cannot become an unprivileged user");
    }

    ~UnprivilegedUser() {
        if (user_ == 0 && (seteuid(user_) != 0 || setegid(group_) != 0))
            _exit(99);
    }

    UnprivilegedUser(const UnprivilegedUser&) = delete;
    UnprivilegedUser& operator=(const UnprivilegedUser&) = delete;

private:
    static constexpr unsigned nobody = 65534;
    uid_t user_;
    gid_t group_;
};

}  // namespace test
