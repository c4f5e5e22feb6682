#include "benchmarks/Process.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <valgrind/valgrind.h>

#include <filesystem>
#include <stdexcept>

#include "benchmarks/Measuring.hpp"

namespace benchmarks {

double run(std::vector<std::string> words) {
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    const int error = posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    struct rusage usage {};
    if (error != 0 || wait4(child, &status, 0, &usage) != child || status != 0)
        throw std::runtime_error("failed: " + words[0]);
    const auto milliseconds = [](const timeval& time) {
        return 1000.0 * static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1000.0;
    };
    return milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime);
}

void timedRun(benchmark::State& state, std::vector<std::string> words, const std::function<void()>& finish) {
    if (RUNNING_ON_VALGRIND) {
        const std::string profile = std::filesystem::current_path() / "callgrind.out.%p";
        words.insert(words.begin(), {"valgrind", "--tool=callgrind", "--quiet", "--trace-children=yes",
                                     "--callgrind-out-file=" + profile});
    }
    double processor = 0;
    timed(state, [&] {
        processor = run(words);
        finish();
    });
    addProcessorTime(state, processor);
}

std::string findCommand() {
    return (std::filesystem::read_symlink("/proc/self/exe").parent_path() / "project-metadata").native();
}

}  // namespace benchmarks
