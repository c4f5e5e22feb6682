// A process that has done its work says so, or what it found, through a pipe. One that says nothing has crashed.
#include "store_testing/ChildProcess.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <system_error>

#include "host/Interruption.hpp"
#include "store_testing/ScratchProject.hpp"

namespace project::store_testing {

namespace {

using Clock = std::chrono::steady_clock;

constexpr char done = 'd';
constexpr char broken = 'b';

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

/// What `work` ends with, as it is reported.
std::string carryOut(const std::function<void()>& work) {
    try {
        work();
        return {done};
    } catch (const Breach& breach) {
        return broken + std::string(breach.what());
    } catch (...) {
        return broken + ("expected no error, found " + describeCurrentException());
    }
}

[[noreturn]] void live(const std::function<void()>& work, pid_t parent, int reports) {
    // In a group of its own, so that all that it starts can be killed; but no longer than anybody waits for it.
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    if (getppid() != parent)
        _exit(1);
    const std::string report = carryOut(work);
    for (std::size_t written = 0; written < report.size();) {
        const auto count = TEMP_FAILURE_RETRY(::write(reports, report.data() + written, report.size() - written));
        if (count <= 0)
            _exit(1);
        written += static_cast<std::size_t>(count);
    }
    _exit(0);
}

std::string describeEnd(int status) {
    if (WIFSIGNALED(status))
        return "expected the check to come to its end, found the process killed by the signal " +
               std::to_string(WTERMSIG(status)) + " (" + strsignal(WTERMSIG(status)) + ')';
    return "expected the check to come to its end, found the process ended with the status " +
           std::to_string(WEXITSTATUS(status));
}

/// Reads from `file` to its end. @return no value if that does not come before `end`
std::optional<std::string> readUntil(Clock::time_point end, int file) {
    // Short enough for a user who wants to stop.
    constexpr std::chrono::milliseconds patience(100);
    std::string text;
    for (;;) {
        host::Interruption::throwIfRequested();
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
        if (left.count() <= 0)
            return std::nullopt;
        pollfd ready{file, POLLIN, 0};
        if (poll(&ready, 1, static_cast<int>(std::min(left, patience).count())) <= 0)
            continue;
        std::array<char, 4096> buffer{};
        const auto count = TEMP_FAILURE_RETRY(::read(file, buffer.data(), buffer.size()));
        if (count <= 0)
            return text;
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

}  // namespace

ChildProcess::ChildProcess(const std::function<void()>& work) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        fail("cannot make a pipe");
    const pid_t parent = getpid();
    id_ = fork();
    if (id_ == 0) {
        close(ends[0]);
        live(work, parent, ends[1]);
    }
    reports_ = ends[0];
    close(ends[1]);
    if (id_ < 0) {
        close(reports_);
        fail("cannot start a process");
    }
    // Both do it, because either may be the first that needs it.
    setpgid(id_, id_);
}

ChildProcess::~ChildProcess() {
    kill();
    close(reports_);
}

void ChildProcess::kill() noexcept {
    if (id_ < 0)
        return;
    ::kill(-id_, SIGKILL);
    waitpid(id_, nullptr, 0);
    id_ = -1;
}

std::optional<std::string> ChildProcess::wait(std::chrono::milliseconds limit) {
    const auto report = readUntil(Clock::now() + limit, reports_);
    if (!report) {
        kill();
        return "expected the check to come to its end, found it still running after " +
               std::to_string(std::chrono::duration_cast<std::chrono::seconds>(limit).count()) + " seconds";
    }
    // What it may have left running goes while its number is still its own.
    siginfo_t end{};
    waitid(P_PID, static_cast<id_t>(id_), &end, WEXITED | WNOWAIT);
    ::kill(-id_, SIGKILL);
    int status = 0;
    waitpid(id_, &status, 0);
    id_ = -1;
    if (report->empty())
        return describeEnd(status);
    return report->front() == done ? std::nullopt : std::optional(report->substr(1));
}

}  // namespace project::store_testing
