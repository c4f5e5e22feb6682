/// A process forked off the test, which may be killed at any moment, and what it reports.
#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <exception>
#include <optional>
#include <stdexcept>

namespace test {

/// Fork only while the test has one thread and no store open.
class ChildProcess {
public:
    /// Starts a process that does `work` and ends: with status 0, or with 1 if that throws, once it has said why.
    template <class Work>
    explicit ChildProcess(const Work& work) : id_(fork()) {
        if (id_ < 0)
            throw std::runtime_error("cannot fork");
        if (id_ > 0)
            return;
        try {
            work();
        } catch (const std::exception& error) {
            std::fprintf(stderr, "child process: %s\n", error.what());
            _exit(1);
        }
        _exit(0);
    }

    ~ChildProcess() {
        if (id_ > 0)
            kill();
    }

    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// Waits for its end. @return its exit status, or the negative number of the signal that ended it
    int wait() {
        int status = 0;
        if (waitpid(id_, &status, 0) != id_)
            throw std::runtime_error("cannot wait for a child process");
        id_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    void signal(int number) const { ::kill(id_, number); }

    /// Kills it, if it lives. @return as `wait`: -SIGKILL, unless it had ended by itself
    int kill() {
        ::kill(id_, SIGKILL);
        return wait();
    }

private:
    pid_t id_;
};

/// Numbers from a child process, which need nobody who reads them.
class Pipe {
public:
    Pipe() {
        if (pipe2(ends_.data(), O_CLOEXEC | O_NONBLOCK) != 0)
            throw std::runtime_error("cannot make a pipe");
    }

    ~Pipe() {
        close(ends_[0]);
        close(ends_[1]);
    }

    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    void write(int number) const {
        if (::write(ends_[1], &number, sizeof number) != sizeof number)
            throw std::runtime_error("cannot write into a pipe");
    }

    /// The next number, if there is one yet.
    std::optional<int> read() const {
        int number = 0;
        return ::read(ends_[0], &number, sizeof number) == sizeof number ? std::optional(number) : std::nullopt;
    }

private:
    std::array<int, 2> ends_{};
};

}  // namespace test
