#include "embedded/host/File.hpp"

#include "embedded/host/NativePath.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

namespace host {

template <class Result>
Result File::check(Result result) const {
    if (result < 0)
        throwSystemError(path_, errno);
    return result;
}

File::File(const Path& path, int flags, mode_t mode)
    : path_(path), descriptor_(open(toNative(path).c_str(), flags | O_CLOEXEC, mode)) {
    check(descriptor_);
}

File::~File() {
    if (descriptor_ >= 0)
        ::close(descriptor_);
}

struct stat File::getStatus() const {
    struct stat status {};
    check(fstat(descriptor_, &status));
    return status;
}

std::size_t File::read(char* bytes, std::size_t size) {
    return static_cast<std::size_t>(check(TEMP_FAILURE_RETRY(::read(descriptor_, bytes, size))));
}

std::string File::readAll() {
    std::string content;
    std::array<char, 1 << 14> buffer{};
    while (const std::size_t count = read(buffer.data(), buffer.size()))
        content.append(buffer.data(), count);
    return content;
}

void File::write(const char* bytes, std::size_t size) {
    while (size > 0) {
        const auto count = check(TEMP_FAILURE_RETRY(::write(descriptor_, bytes, size)));
        bytes += count;
        size -= static_cast<std::size_t>(count);
    }
}

void File::close() {
    check(::close(std::exchange(descriptor_, -1)));
}

}  // namespace host
