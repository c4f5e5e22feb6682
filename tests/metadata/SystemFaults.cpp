#include "tests/metadata/SystemFaults.hpp"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

namespace {

test::ReadFault* armedFault = nullptr;

}  // namespace

namespace test {

ReadFault::ReadFault(std::string file, int goodReads) : file_(std::move(file)), goodReads_(goodReads) {
    armedFault = this;
}

ReadFault::~ReadFault() {
    armedFault = nullptr;
}

bool ReadFault::strikes(int descriptor) {
    std::error_code ignored;
    return goodReads_ >= 0 &&
           std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), ignored) == file_ &&
           goodReads_-- == 0;
}

}  // namespace test

/// Stands before the C library's for the whole process, the file streams of the standard library included.
extern "C" __attribute__((visibility("default"))) ssize_t read(int descriptor, void* buffer, size_t count) {
    if (armedFault && armedFault->strikes(descriptor)) {
        errno = EIO;
        return -1;
    }
    return syscall(SYS_read, descriptor, buffer, count);
}
