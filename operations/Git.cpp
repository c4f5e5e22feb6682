#include "operations/Git.hpp"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/algorithm/string/trim_all.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <system_error>

#include "host/Interruption.hpp"
#include "operations/Errors.hpp"

namespace operations {

namespace {

struct Pipe {
    Pipe() {
        if (pipe2(ends.data(), O_CLOEXEC) != 0)
            throw std::system_error(errno, std::generic_category(), "git cannot be started");
    }
    ~Pipe() {
        closeEnd(0);
        closeEnd(1);
    }

    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    void closeEnd(std::size_t end) {
        if (ends.at(end) >= 0)
            close(ends.at(end));
        ends.at(end) = -1;
    }

    std::array<int, 2> ends{-1, -1};
};

/// The environment for git: without its variables for one repository ("git rev-parse --local-env-vars"), but for the
/// configuration that they may hold.
std::vector<std::string> makeEnvironment() {
    constexpr std::array<std::string_view, 16> leftOut{"GIT_ALTERNATE_OBJECT_DIRECTORIES",
                                                       "GIT_OBJECT_DIRECTORY",
                                                       "GIT_DIR",
                                                       "GIT_WORK_TREE",
                                                       "GIT_IMPLICIT_WORK_TREE",
                                                       "GIT_GRAFT_FILE",
                                                       "GIT_INDEX_FILE",
                                                       "GIT_NO_REPLACE_OBJECTS",
                                                       "GIT_REPLACE_REF_BASE",
                                                       "GIT_PREFIX",
                                                       "GIT_SHALLOW_FILE",
                                                       "GIT_COMMON_DIR",
                                                       "GIT_ALLOW_PROTOCOL",
                                                       "GIT_OPTIONAL_LOCKS",
                                                       "GIT_TERMINAL_PROMPT",
                                                       "LC_ALL"};
    std::vector<std::string> environment{"LC_ALL=C", "GIT_OPTIONAL_LOCKS=0", "GIT_TERMINAL_PROMPT=0",
                                         "GIT_ALLOW_PROTOCOL=none"};
    for (char** variable = environ; *variable; ++variable) {
        const std::string_view text = *variable;
        if (std::find(leftOut.begin(), leftOut.end(), text.substr(0, text.find('='))) == leftOut.end())
            environment.emplace_back(text);
    }
    return environment;
}

std::vector<char*> makePointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

/// What both pipes give until they are closed.
void drain(std::array<Pipe, 2>& pipes, const std::array<std::string*, 2>& texts) {
    std::array<pollfd, 2> streams{{{pipes[0].ends[0], POLLIN, 0}, {pipes[1].ends[0], POLLIN, 0}}};
    std::array<char, 65536> buffer{};
    while (streams[0].fd >= 0 || streams[1].fd >= 0) {
        if (poll(streams.data(), streams.size(), -1) < 0 && errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "git cannot be heard");
        for (std::size_t i = 0; i < streams.size(); ++i) {
            if (streams[i].fd < 0 || streams[i].revents == 0)
                continue;
            const ssize_t count = TEMP_FAILURE_RETRY(read(streams[i].fd, buffer.data(), buffer.size()));
            if (count > 0)
                texts[i]->append(buffer.data(), static_cast<std::size_t>(count));
            else
                streams[i].fd = -1;
        }
    }
}

}  // namespace

GitOutcome runGit(const std::string& folder, std::vector<std::string> arguments, const std::string& input) {
    arguments.insert(arguments.begin(), {"git", "-c", "core.fsmonitor=false", "-C", folder});
    std::vector<std::string> environment = makeEnvironment();
    std::array<Pipe, 2> pipes;
    posix_spawn_file_actions_t actions{};
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, input.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, pipes[0].ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, pipes[1].ends[1], STDERR_FILENO);
    pid_t child = -1;
    const int failure = posix_spawnp(&child, "git", &actions, nullptr, makePointers(arguments).data(),
                                     makePointers(environment).data());
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) {
        throw OperationError(ErrorKind::failure, "The program git cannot be started; is it installed? " +
                                                     std::generic_category().message(failure));
    }
    for (Pipe& pipe : pipes)
        pipe.closeEnd(1);
    GitOutcome outcome{-1, {}, {}};
    drain(pipes, {&outcome.out, &outcome.error});
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    host::Interruption::throwIfRequested();
    if (!WIFEXITED(status))
        throw OperationError(ErrorKind::failure, "git was stopped before its end");
    outcome.status = WEXITSTATUS(status);
    boost::algorithm::trim_fill(outcome.error, " ");
    return outcome;
}

}  // namespace operations
