#include "tests/cli/RunCommand.hpp"

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <system_error>

#include "tests/support/TempFolder.hpp"

namespace test {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void throwErrno(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

struct Pipe {
    Pipe() {
        if (pipe2(ends.data(), O_CLOEXEC) != 0)
            throwErrno("pipe2");
    }
    std::array<int, 2> ends{};
};

/// What the two pipes give until both are closed.
void drain(const Pipe& out, const Pipe& err, Outcome& outcome) {
    std::array<pollfd, 2> streams{{{out.ends[0], POLLIN, 0}, {err.ends[0], POLLIN, 0}}};
    std::array<std::string*, 2> texts{&outcome.out, &outcome.err};
    for (std::size_t open = 2; open > 0;) {
        if (poll(streams.data(), streams.size(), -1) < 0)
            throwErrno("poll");
        for (std::size_t i = 0; i < streams.size(); ++i) {
            if (streams[i].revents == 0)
                continue;
            std::array<char, 1 << 16> buffer{};
            const ssize_t count = read(streams[i].fd, buffer.data(), buffer.size());
            if (count > 0) {
                texts[i]->append(buffer.data(), static_cast<std::size_t>(count));
                continue;
            }
            close(streams[i].fd);
            streams[i].fd = -1;
            --open;
        }
    }
}

[[noreturn]] void becomeProgram(const fs::path& program, const std::vector<std::string>& arguments,
                                const Surroundings& surroundings) {
    static const std::string name = program.filename();
    std::vector<char*> argv{const_cast<char*>(name.c_str())};
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    for (const char* variable : {"PROJECT_METADATA_PREFIX", "PROJECT_METADATA_SETTINGS", "HOME", "XDG_CONFIG_HOME",
                                 "XDG_DATA_HOME", "XDG_STATE_HOME"})
        unsetenv(variable);
    for (const auto& [key, value] : surroundings.variables)
        setenv(key.c_str(), value.c_str(), 1);
    signal(SIGPIPE, SIG_DFL);
    if (surroundings.folder.empty() || chdir(surroundings.folder.c_str()) == 0) {
        try {
            if (surroundings.prepare)
                surroundings.prepare();
            execv(program.c_str(), argv.data());
        } catch (...) {
        }
    }
    _exit(125);
}

}  // namespace

Outcome runProgram(const fs::path& program, const std::vector<std::string>& arguments,
                   const Surroundings& surroundings) {
    const Pipe out;
    const Pipe err;
    const pid_t child = fork();
    if (child < 0)
        throwErrno("fork");
    if (child == 0) {
        dup2(out.ends[1], STDOUT_FILENO);
        dup2(err.ends[1], STDERR_FILENO);
        becomeProgram(program, arguments, surroundings);
    }
    close(out.ends[1]);
    close(err.ends[1]);
    Outcome outcome{};
    drain(out, err, outcome);
    int status = 0;
    if (waitpid(child, &status, 0) != child)
        throwErrno("waitpid");
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    return outcome;
}

Outcome run(const std::vector<std::string>& arguments, const Surroundings& surroundings) {
    const fs::path prefix = surroundings.prefix.empty() ? fs::path(CLI_TEST_PREFIX) : surroundings.prefix;
    return runProgram(prefix / "bin/project-metadata", arguments, surroundings);
}

void becomeUnprivileged() {
    constexpr unsigned nobody = 65534;
    if (geteuid() == 0 && (setgroups(0, nullptr) != 0 || setgid(nobody) != 0 || setuid(nobody) != 0))
        throwErrno("setuid");
}

std::function<void()> limitFileSize(unsigned long bytes) {
    return [bytes] {
        const rlimit limit{bytes, bytes};
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0)
            throwErrno("setrlimit");
    };
}

Surroundings withInput(const std::string& bytes) {
    Surroundings surroundings;
    surroundings.prepare = [bytes] {
        const int input = memfd_create("input", 0);
        if (write(input, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()) ||
            lseek(input, 0, SEEK_SET) != 0 || dup2(input, STDIN_FILENO) < 0)
            throwErrno("memfd");
    };
    return surroundings;
}

const fs::path& movedInstallation() {
    static const TempFolder folder;
    static const fs::path prefix = [] {
        fs::copy(CLI_TEST_PREFIX, folder / "moved", fs::copy_options::recursive | fs::copy_options::copy_symlinks);
        return folder / "moved";
    }();
    return prefix;
}

}  // namespace test
