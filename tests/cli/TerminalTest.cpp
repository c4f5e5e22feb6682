/// The command at a real terminal: progress, Ctrl-C and colours.
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <thread>

#include "tests/cli/ProjectFixture.hpp"
#include "tests/support/ChildProcess.hpp"

namespace {

using test::readTree;
using test::run;
using testing::HasSubstr;
using testing::Not;

/// A shell's command in the foreground of a terminal of its own.
class TerminalSession {
public:
    explicit TerminalSession(const std::string& command) {
        process_ = forkpty(&screen_, nullptr, nullptr, nullptr);
        if (process_ == 0) {
            setenv("TERM", "xterm", 1);
            unsetenv("NO_COLOR");
            execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
            _exit(125);
        }
    }

    ~TerminalSession() { close(screen_), wait(); }
    TerminalSession(const TerminalSession&) = delete;
    TerminalSession& operator=(const TerminalSession&) = delete;

    /// What appears on the screen until `text` does, or until the end.
    std::string readUntil(const std::string& text) {
        for (pollfd ready{screen_, POLLIN, 0}; seen_.find(text) == std::string::npos && poll(&ready, 1, 30000) > 0;) {
            std::array<char, 4096> buffer{};
            const ssize_t count = read(screen_, buffer.data(), buffer.size());
            if (count <= 0)
                break;
            seen_.append(buffer.data(), static_cast<std::size_t>(count));
        }
        return seen_;
    }

    void type(char key) const { ASSERT_EQ(write(screen_, &key, 1), 1); }

    bool isRunning() const {
        siginfo_t end{};
        return waitid(P_PID, static_cast<id_t>(process_), &end, WEXITED | WNOHANG | WNOWAIT) == 0 && end.si_pid == 0;
    }

    /// The exit status, after the end.
    int wait() const {
        int status = 0;
        waitpid(process_, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

private:
    int screen_ = -1;
    pid_t process_ = -1;
    std::string seen_;
};

using TerminalTest = test::ProjectFixture;
const std::string program = "exec " CLI_TEST_PREFIX "/bin/project-metadata ";

TEST_F(TerminalTest, longWorkShowsProgressAndEndsWithCtrlCWithoutAChange) {
    init();
    for (int i = 0; i < 100; ++i)
        test::writeBytes(folder / "source" / std::to_string(i), "");
    // Somebody else holds the lock, so that storing takes long.
    const int lock = open((coreFile.parent_path() / ".lock").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    const auto before = readTree(root);

    TerminalSession session(program + "scan '" + root.native() + "' '" + (folder / "source").native() + "' > '" +
                            (folder / "out").native() + "'");
    const std::string owner = "Waiting for another program (process " + std::to_string(getpid());
    // On a busy machine it may come before the first line of progress, which it clears away otherwise.
    EXPECT_THAT(session.readUntil("/.lock\""), testing::AnyOf(testing::StartsWith("project-metadata: " + owner),
                                                              HasSubstr("\r\x1b[Kproject-metadata: " + owner)));
    EXPECT_THAT(session.readUntil("Storing, "), HasSubstr("\r\x1b[KStoring, "));
    session.type(3);  // Ctrl-C
    EXPECT_THAT(session.readUntil("as it was"),
                HasSubstr("\r\x1b[Kproject-metadata: Interrupted; everything is as it was"));
    EXPECT_EQ(session.wait(), 130);
    EXPECT_EQ(test::readBytes(folder / "out"), "");
    EXPECT_EQ(readTree(root), before);
    close(lock);
    EXPECT_EQ(run({"scan", root, folder / "source"}).status, 0);
}

TEST_F(TerminalTest, ctrlCEndsWhatWaitsForAReader) {
    init();
    ASSERT_EQ(run({"set", root, "File:a", "--create", "Text=" + std::string(100'000, 'x')}).status, 0);
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    const int room = fcntl(ends[1], F_SETPIPE_SZ, 4096);
    test::ChildProcess command([&] {
        dup2(ends[1], STDOUT_FILENO);
        execl(CLI_TEST_PREFIX "/bin/project-metadata", "project-metadata", "get", "-C", root.c_str(), "File:a", "Text",
              nullptr);
    });
    alarm(60);  // rather than for ever
    for (int filled = 0; filled < room; std::this_thread::sleep_for(std::chrono::milliseconds(100)))
        ASSERT_EQ(ioctl(ends[0], FIONREAD, &filled), 0);
    command.signal(SIGINT);
    EXPECT_EQ(command.wait(), 130);
    alarm(0);
    close(ends[0]);
    close(ends[1]);
}

TEST_F(TerminalTest, theSecondCtrlCEndsWhatCannotBeStopped) {
    TerminalSession session("export METADATA_TEST_PLUGIN=hanging; " + program + "conform " CLI_TEST_PLUGIN);
    EXPECT_THAT(session.readUntil("hanging on purpose"), HasSubstr("hanging on purpose"));
    session.type(3);
    // Until the first one has been delivered, a second one is the same to the system.
    for (int i = 0; i < 100 && session.isRunning(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        session.type(3);
    }
    EXPECT_EQ(session.wait(), -SIGINT);
}

TEST_F(TerminalTest, outputIsColouredThereUnlessTheUserObjects) {
    init();
    test::writeBytes(folder / "source/file", "");
    const std::string scan = "scan -v --dry-run '" + root.native() + "' '" + (folder / "source").native() + "'";
    const auto screenOf = [](const std::string& command) {
        TerminalSession session(command);
        std::string screen = session.readUntil("; 1 file");
        // Closing the screen is a signal, by which a sanitizer that is just looking for leaks may hang.
        session.wait();
        return screen;
    };
    EXPECT_THAT(screenOf(program + scan), HasSubstr("\x1b[32m+ File:file\x1b[0m\r\n"));
    EXPECT_THAT(screenOf("export NO_COLOR=1; " + program + scan),
                AllOf(HasSubstr("+ File:file\r\n"), Not(HasSubstr("\x1b"))));
    EXPECT_THAT(screenOf(program + scan + " --color never"), Not(HasSubstr("\x1b")));
    EXPECT_THAT(screenOf(program + scan + " | cat"), Not(HasSubstr("\x1b")));
    EXPECT_THAT(run({"scan", "-v", root, folder / "source", "--color", "always"}).out, HasSubstr("\x1b[32m"));
}

}  // namespace
