#include "host/StackTrace.hpp"

#include <unwind.h>

namespace host {

namespace {

struct Recording {
    std::array<void*, StackTrace::capacity>& frames;
    std::size_t size;
    std::size_t framesToSkip;
};

_Unwind_Reason_Code recordFrame(_Unwind_Context* context, void* argument) {
    auto& recording = *static_cast<Recording*>(argument);
    if (recording.framesToSkip > 0) {
        --recording.framesToSkip;
        return _URC_NO_REASON;
    }
    const auto address = _Unwind_GetIP(context);
    // What called the outermost function of a thread.
    if (address == 0)
        return _URC_END_OF_STACK;
    recording.frames[recording.size++] = reinterpret_cast<void*>(address);  // NOLINT(performance-no-int-to-ptr)
    return recording.size == recording.frames.size() ? _URC_END_OF_STACK : _URC_NO_REASON;
}

}  // namespace

// The compiler's own unwinder and not backtrace(), which may allocate on its first call, and which would need a buffer
// for the skipped frames.
__attribute__((noinline)) StackTrace StackTrace::capture(std::size_t skippedFrames) {
    constexpr std::size_t thisFunction = 1;
    StackTrace trace;
    Recording recording{trace.frames_, 0, skippedFrames + thisFunction};
    _Unwind_Backtrace(recordFrame, &recording);
    trace.size_ = recording.size;
    return trace;
}

}  // namespace host
