/// Makes system calls fail, or kills the process in their place, so that a test can see what happens then.
///
/// The kernel hands the calls over itself (seccomp), so none is missed, whichever library makes it. What is trapped are
/// the calls that work on files; those on the descriptors 0 to 2 do not count. For x86-64, and
/// for processes with one thread.
#pragma once

#include <string>
#include <vector>

namespace test {

/// What happens to the calls from `startFaults` to `stopFaults`. Calls are numbered from 1.
struct FaultPlan {
    int failAt = 0;          ///< this call fails; 0 for none
    bool isLasting = false;  ///< and so do all calls after it
    int variant = 0;  ///< which of the errors that the call can have, counted round; reads and writes may be cut short
    int killAt = 0;   ///< the process is killed in the place of this call; 0 for none
    bool isRecording = false;
};

/// Hands the system calls of this process over to this file, for good. To be called in a child process.
/// @throws std::runtime_error if the kernel refuses
void trapSystemCalls();

/// From now on calls are counted and `plan` is carried out.
void startFaults(const FaultPlan& plan);

struct FaultCounts {
    int calls = 0;     ///< how many calls there were
    int injected = 0;  ///< how many of them were made to fail
    std::string what;  ///< the first of those: its name, what happened to it, and its path if it has one
    int error = 0;     ///< its error number; 0 if it was cut short
};

/// Ends what `startFaults` began.
FaultCounts stopFaults();

/// A call that succeeded and that changes files, opens or flushes them.
struct RecordedCall {
    std::string name;
    int result;
    int descriptor;      ///< the first argument of a call that works on a descriptor
    int flags;           ///< of "openat"
    long offset;         ///< of "pwrite"; -1 for where the last write ended. The new size of "ftruncate"
    std::string path;    ///< absolute
    std::string target;  ///< likewise; the new name of "rename" and "link"
    std::string bytes;   ///< what was written
};

/// Those since `startFaults`, which had been called with `isRecording`, in their order. To be called once
/// that has ended with `stopFaults`.
std::vector<RecordedCall> takeRecord();

/// How many variants there are of what a call may have.
constexpr int faultVariants = 6;

}  // namespace test
