/// `project-metadata watch`, run beside a test.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include <nlohmann/json.hpp>

namespace test {

/// `watch` at work, and its lines as they come.
class Watching {
public:
    explicit Watching(const std::filesystem::path& root) {
        std::array<int, 2> ends{};
        if (pipe(ends.data()) != 0)
            throw std::runtime_error("pipe");
        process_ = fork();
        if (process_ == 0) {
            dup2(ends[1], STDOUT_FILENO);
            dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
            close(ends[0]);
            execl(CLI_TEST_PREFIX "/bin/project-metadata", "project-metadata", "watch", root.c_str(), "F:top", "--json",
                  nullptr);
            _exit(125);
        }
        close(ends[1]);
        lines_ = fdopen(ends[0], "r");
    }

    ~Watching() {
        fclose(lines_);
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }

    Watching(const Watching&) = delete;
    Watching& operator=(const Watching&) = delete;

    bool hearsSomething() const {
        pollfd ready{fileno(lines_), POLLIN, 0};
        return poll(&ready, 1, 300) == 1;
    }

    nlohmann::json next() const {
        char* line = nullptr;
        std::size_t size = 0;
        alarm(60);  // rather than for ever
        const ssize_t length = getline(&line, &size, lines_);
        alarm(0);
        const std::unique_ptr<char, decltype(&free)> owner(line, free);
        return length > 0 ? nlohmann::json::parse(line) : nlohmann::json();
    }

    int stop() const {
        kill(process_, SIGTERM);
        int status = 0;
        waitpid(process_, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t process_ = -1;
    FILE* lines_ = nullptr;
};

}  // namespace test
