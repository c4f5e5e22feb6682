/// Work in a process of its own, which may crash, hang or hold a lock without harm to anybody else.
///
/// Belongs to the thread that checks; only while the process has no other thread.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include <sys/types.h>

namespace project::store_testing {

class ChildProcess {
public:
    /// Starts a process, forked off this one, that does `work` and ends.
    /// @throws std::system_error if there is none to be had
    explicit ChildProcess(const std::function<void()>& work);

    /// Kills it if it lives.
    ~ChildProcess();

    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// Waits for the end of the process, and kills it, with the processes that it started, when `limit` has passed.
    /// @return no value if the work was done, otherwise the breach that it ended with, or how the process ended
    /// @throws host::InterruptedException if the user wishes to stop
    std::optional<std::string> wait(std::chrono::milliseconds limit);

private:
    void kill() noexcept;

    pid_t id_ = -1;
    int reports_ = -1;
};

}  // namespace project::store_testing
