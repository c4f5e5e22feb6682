/// What is drawn on a terminal while the command works.
#include "cli/text/Progress.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

using namespace std::chrono_literals;
using testing::MatchesRegex;

/// Makes the standard error a terminal, and gives what appears on it.
class Terminal {
public:
    Terminal() : screen_(posix_openpt(O_RDWR | O_NOCTTY)), before_(dup(STDERR_FILENO)) {
        if (screen_ < 0 || grantpt(screen_) != 0 || unlockpt(screen_) != 0)
            throw std::runtime_error("cannot make a terminal");
        terminal_ = open(ptsname(screen_), O_RDWR | O_NOCTTY);
        dup2(terminal_, STDERR_FILENO);
        setenv("TERM", "xterm", 1);
    }

    ~Terminal() {
        dup2(before_, STDERR_FILENO);
        for (const int descriptor : {before_, terminal_, screen_})
            close(descriptor);
    }

    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// What has appeared; a terminal passes it on with a delay.
    std::string read() const {
        std::string text;
        std::array<char, 4096> buffer{};
        for (pollfd ready{screen_, POLLIN, 0}; poll(&ready, 1, 100) > 0;) {
            const ssize_t count = ::read(screen_, buffer.data(), buffer.size());
            text.append(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        }
        return text;
    }

private:
    int screen_;
    int before_;
    int terminal_ = -1;
};

TEST(ProgressTest, showsLongWorkAndErasesItself) {
    const Terminal terminal;
    {
        cli::Progress progress("Scanning");
        for (int i = 0; i < 1234; ++i)
            progress.advance();
        std::this_thread::sleep_for(1100ms);
    }
    const std::string line = "\r\x1b\\[KScanning 1234, [0-9]+ s";
    EXPECT_THAT(terminal.read(), MatchesRegex("(" + line + "){2,7}\r\x1b\\[K"));
}

TEST(ProgressTest, leavesShortWorkUnseen) {
    const Terminal terminal;
    cli::Progress("Exporting").advance();
    EXPECT_EQ(terminal.read(), "");
}

TEST(ProgressTest, isNotMeantForFilesAndSimpleTerminals) {
    const Terminal terminal;
    setenv("TERM", "dumb", 1);
    {
        const cli::Progress progress("Exporting");
        std::this_thread::sleep_for(600ms);
    }
    EXPECT_EQ(terminal.read(), "");
}

}  // namespace
