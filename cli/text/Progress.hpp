/// What a person at a terminal sees of long work.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "cli/text/SafeText.hpp"
#include "cli/text/Warnings.hpp"
#include "operations/Progress.hpp"

namespace cli {

/// While it lives, and if the standard error is a terminal, one line there says what goes on, how much is done and for
/// how long; it appears after half a second and is erased at the end. A thread of its own draws it and touches nothing
/// else. The main thread makes, advances and destroys it.
class Progress : public operations::Progress {
public:
    /// @param work what is done, such as "Scanning"
    explicit Progress(std::string work);
    ~Progress() override;

    void advance() override {
        ++count_;
        operations::Progress::advance();
    }

    /// To be called before something is printed while work goes on. On a terminal, that shows how far the work is, and
    /// nothing is drawn any more.
    void giveWay();

    /// Erases the line, if there is one, to make room for an error. It comes back below.
    static void makeRoom();

private:
    void draw();
    void finish();

    std::string work_;
    std::atomic<std::uint64_t> count_{0};
    std::mutex mutex_;
    std::condition_variable wake_;
    bool finished_ = false;
    std::thread thread_;
};

/// Shows what operations tell. Main thread only.
class CommandObserver : public Observer {
public:
    std::unique_ptr<operations::Progress> start(const std::string& work) override {
        return std::make_unique<Progress>(escapeText(host::Path::fromAccessName(work).text()));
    }

    void useScratchFolder(const host::Path& folder) override { ignoreWarningsAbout(folder); }
};

}  // namespace cli
