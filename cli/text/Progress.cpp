#include "cli/text/Progress.hpp"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <system_error>
#include <utility>

namespace cli {

namespace {

using namespace std::chrono_literals;

bool canRedrawLines() {
    const char* const terminal = std::getenv("TERM");
    return isatty(STDERR_FILENO) == 1 && terminal && std::string_view(terminal) != "dumb";
}

/// To the start of the line and erase it: ECMA-48, control function EL.
constexpr const char* eraseLine = "\r\x1b[K";

std::atomic<bool> isDrawn{false};

}  // namespace

Progress::Progress(std::string work) : work_(std::move(work)) {
    if (!canRedrawLines())
        return;
    try {
        thread_ = std::thread(&Progress::draw, this);
    } catch (const std::system_error&) {
        // Without a thread the work is done all the same, only unseen.
    }
}

Progress::~Progress() {
    finish();
}

void Progress::giveWay() {
    if (isatty(STDOUT_FILENO) == 1)
        finish();
}

void Progress::makeRoom() {
    if (isDrawn)
        std::fputs(eraseLine, stderr);
}

void Progress::finish() {
    if (!thread_.joinable())
        return;
    {
        const std::lock_guard lock(mutex_);
        finished_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

void Progress::draw() {
    const auto start = std::chrono::steady_clock::now();
    std::unique_lock lock(mutex_);
    while (!wake_.wait_for(lock, isDrawn ? 100ms : 500ms, [this] { return finished_; })) {
        const auto elapsed = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start);
        const std::uint64_t count = count_;
        const std::string counter = count == 0 ? "" : " " + std::to_string(count);
        std::fprintf(stderr, "%s%s%s, %lld s", eraseLine, work_.c_str(), counter.c_str(),
                     static_cast<long long>(elapsed.count()));
        isDrawn = true;
    }
    makeRoom();
    isDrawn = false;
}

}  // namespace cli
