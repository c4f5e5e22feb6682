/// Failures of the operating system, made on purpose.
#pragma once

#include <sys/resource.h>

#include <csignal>
#include <string>

namespace test {

/// While it lives, no file of this process grows beyond `bytes`: writing more fails as on a full disk.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }

    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }

    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit before_{};
    void (*handler_)(int);
};

/// While it lives, reading `file` fails once with an input/output error, after `goodReads` reads that succeed. One at
/// a time; for files that are read on one thread.
class ReadFault {
public:
    ReadFault(std::string file, int goodReads);
    ~ReadFault();

    ReadFault(const ReadFault&) = delete;
    ReadFault& operator=(const ReadFault&) = delete;

    /// Whether reading has failed.
    bool hasStruck() const { return goodReads_ < 0; }

    /// Whether this read of `descriptor` is the one that fails.
    bool strikes(int descriptor);

private:
    std::string file_;
    int goodReads_;
};

}  // namespace test
