/// The return addresses of a thread at one moment, stored inline so that recording one never allocates.
#pragma once

#include <array>
#include <cstddef>

#include "host/Export.hpp"

namespace host {

class HOST_EXPORT StackTrace {
public:
    static constexpr std::size_t capacity = 128;

    /// Records the calling thread's stack, innermost frame first, without the innermost `skippedFrames` ones; what
    /// does not fit is left out. The caller of `capture` is the first frame that counts.
    static StackTrace capture(std::size_t skippedFrames);

    const void* const* begin() const noexcept { return frames_.data(); }
    const void* const* end() const noexcept { return frames_.data() + size_; }
    std::size_t size() const noexcept { return size_; }

private:
    std::array<void*, capacity> frames_{};
    std::size_t size_ = 0;
};

}  // namespace host
