#include "tests/faults/SystemFaults.hpp"

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <utility>
#include <vector>

// The one place in this process from which trapped calls get through to the kernel.
extern "C" long makeSystemCall(long number, long a, long b, long c, long d, long e, long f);
extern "C" char systemCallReturn[];
asm(R"(
.text
.globl makeSystemCall
.hidden makeSystemCall
makeSystemCall:
    mov %rdi, %rax
    mov %rsi, %rdi
    mov %rdx, %rsi
    mov %rcx, %rdx
    mov %r8, %r10
    mov %r9, %r8
    mov 8(%rsp), %r9
    syscall
.globl systemCallReturn
.hidden systemCallReturn
systemCallReturn:
    ret
)");

namespace test {

namespace {

/// No error number: half of the bytes are written or read.
constexpr int cutShort = 0;

using Errors = std::array<int, faultVariants>;

constexpr Errors ofOpening{EMFILE, EIO, EACCES, ENOSPC, EINTR, EROFS};
constexpr Errors ofReading{EIO, EINTR, cutShort, EIO, ENOMEM, cutShort};
constexpr Errors ofWriting{ENOSPC, EIO, cutShort, EINTR, EDQUOT, cutShort};
constexpr Errors ofLooking{EIO, EACCES, ENOMEM, EIO, EACCES, ENOMEM};
constexpr Errors ofListing{EIO, EACCES, ENOMEM, EIO, EINTR, ENOMEM};
constexpr Errors ofNaming{ENOSPC, EIO, EACCES, EROFS, ENOMEM, EPERM};
constexpr Errors ofFlushing{EIO, ENOSPC, EINTR, EDQUOT, EIO, EROFS};
constexpr Errors ofClosing{EIO, EINTR, ENOSPC, EIO, EDQUOT, EINTR};
constexpr Errors ofLocking{EINTR, ENOLCK, EIO, EINTR, ENOLCK, ENOMEM};

enum class Subject { path, secondPath, descriptor };

struct TrappedCall {
    int number;
    const char* name;
    Subject subject;  ///< where the path stands, if it has one
    const Errors& errors;
};

const std::array trappedCalls{
    TrappedCall{SYS_open, "open", Subject::path, ofOpening},
    TrappedCall{SYS_openat, "openat", Subject::secondPath, ofOpening},
    TrappedCall{SYS_creat, "creat", Subject::path, ofOpening},
    TrappedCall{SYS_read, "read", Subject::descriptor, ofReading},
    TrappedCall{SYS_readv, "readv", Subject::descriptor, ofReading},
    TrappedCall{SYS_pread64, "pread", Subject::descriptor, ofReading},
    TrappedCall{SYS_write, "write", Subject::descriptor, ofWriting},
    TrappedCall{SYS_writev, "writev", Subject::descriptor, ofWriting},
    TrappedCall{SYS_pwrite64, "pwrite", Subject::descriptor, ofWriting},
    TrappedCall{SYS_ftruncate, "ftruncate", Subject::descriptor, ofNaming},
    TrappedCall{SYS_fallocate, "fallocate", Subject::descriptor, ofWriting},
    TrappedCall{SYS_copy_file_range, "copy_file_range", Subject::descriptor, ofNaming},
    TrappedCall{SYS_sendfile, "sendfile", Subject::descriptor, ofNaming},
    TrappedCall{SYS_stat, "stat", Subject::path, ofLooking},
    TrappedCall{SYS_lstat, "lstat", Subject::path, ofLooking},
    TrappedCall{SYS_fstat, "fstat", Subject::descriptor, ofLooking},
    TrappedCall{SYS_newfstatat, "fstatat", Subject::secondPath, ofLooking},
    TrappedCall{SYS_statx, "statx", Subject::secondPath, ofLooking},
    TrappedCall{SYS_access, "access", Subject::path, ofLooking},
    TrappedCall{SYS_faccessat, "faccessat", Subject::secondPath, ofLooking},
    TrappedCall{SYS_faccessat2, "faccessat2", Subject::secondPath, ofLooking},
    TrappedCall{SYS_readlink, "readlink", Subject::path, ofLooking},
    TrappedCall{SYS_getdents64, "getdents", Subject::descriptor, ofListing},
    TrappedCall{SYS_rename, "rename", Subject::path, ofNaming},
    TrappedCall{SYS_renameat, "renameat", Subject::secondPath, ofNaming},
    TrappedCall{SYS_renameat2, "renameat2", Subject::secondPath, ofNaming},
    TrappedCall{SYS_link, "link", Subject::path, ofNaming},
    TrappedCall{SYS_linkat, "linkat", Subject::secondPath, ofNaming},
    TrappedCall{SYS_unlink, "unlink", Subject::path, ofNaming},
    TrappedCall{SYS_unlinkat, "unlinkat", Subject::secondPath, ofNaming},
    TrappedCall{SYS_rmdir, "rmdir", Subject::path, ofNaming},
    TrappedCall{SYS_mkdir, "mkdir", Subject::path, ofNaming},
    TrappedCall{SYS_mkdirat, "mkdirat", Subject::secondPath, ofNaming},
    TrappedCall{SYS_chmod, "chmod", Subject::path, ofNaming},
    TrappedCall{SYS_fchmod, "fchmod", Subject::descriptor, ofNaming},
    TrappedCall{SYS_fchmodat, "fchmodat", Subject::secondPath, ofNaming},
    TrappedCall{SYS_fchown, "fchown", Subject::descriptor, ofNaming},
    TrappedCall{SYS_llistxattr, "llistxattr", Subject::path, ofLooking},
    TrappedCall{SYS_lgetxattr, "lgetxattr", Subject::path, ofLooking},
    TrappedCall{SYS_fgetxattr, "fgetxattr", Subject::descriptor, ofLooking},
    TrappedCall{SYS_fsetxattr, "fsetxattr", Subject::descriptor, ofNaming},
    TrappedCall{SYS_fremovexattr, "fremovexattr", Subject::descriptor, ofNaming},
    TrappedCall{SYS_utimensat, "utimensat", Subject::secondPath, ofNaming},
    TrappedCall{SYS_fsync, "fsync", Subject::descriptor, ofFlushing},
    TrappedCall{SYS_fdatasync, "fdatasync", Subject::descriptor, ofFlushing},
    TrappedCall{SYS_syncfs, "syncfs", Subject::descriptor, ofFlushing},
    TrappedCall{SYS_flock, "flock", Subject::descriptor, ofLocking},
    TrappedCall{SYS_fcntl, "fcntl", Subject::descriptor, ofLocking},
    TrappedCall{SYS_close, "close", Subject::descriptor, ofClosing},
};

bool isActive = false;
FaultPlan plan;
int calls = 0;
int injected = 0;
int firstError = 0;
const TrappedCall* firstCall = nullptr;
std::array<char, 4096> firstPath{};

struct Arguments {
    std::array<long, 6> values;

    long operator[](std::size_t index) const { return values.at(index); }
};

long pass(int number, const Arguments& a) {
    return makeSystemCall(number, a[0], a[1], a[2], a[3], a[4], a[5]);
}

/// The runtime of a sanitizer writes into pipes of its own to see what memory it may touch.
bool isPipe(long descriptor) {
    struct stat status {};
    const long result = makeSystemCall(SYS_fstat, descriptor, reinterpret_cast<long>(&status), 0, 0, 0, 0);
    return result == 0 && S_ISFIFO(status.st_mode);
}

bool isCounted(const TrappedCall& call, const Arguments& a) {
    if (call.subject == Subject::descriptor && (a[0] <= STDERR_FILENO || isPipe(a[0])))
        return false;
    // Of these only locks can fail.
    const auto command = static_cast<int>(a[1]);
    return call.number != SYS_fcntl || command == F_SETLK || command == F_SETLKW || command == F_OFD_SETLK ||
           command == F_OFD_SETLKW;
}

// The record, which has to do without allocations.

struct RecordHead {
    const TrappedCall* call;
    long result;
    Arguments arguments;
    std::size_t pathSize;
    std::size_t targetSize;
    std::size_t byteCount;
};

constexpr std::size_t recordSize = std::size_t{64} << 20U;
std::array<char, recordSize> record;
std::size_t recordEnd = 0;

void append(const void* bytes, std::size_t size) {
    if (size > record.size() - recordEnd)
        std::abort();
    if (size > 0)
        std::memcpy(record.data() + recordEnd, bytes, size);
    recordEnd += size;
}

void addToRecord(const TrappedCall& call, const Arguments& a, long result) {
    const auto toText = [](long argument) { return reinterpret_cast<const char*>(argument); };
    const char* path = "";
    const char* target = "";
    const char* bytes = nullptr;
    std::size_t byteCount = 0;
    if (call.subject == Subject::path)
        path = toText(a[0]);
    if (call.subject == Subject::secondPath)
        path = toText(a[1]);
    if (call.number == SYS_rename || call.number == SYS_link)
        target = toText(a[1]);
    if (call.number == SYS_renameat || call.number == SYS_renameat2 || call.number == SYS_linkat)
        target = toText(a[3]);
    if (call.number == SYS_write || call.number == SYS_pwrite64) {
        bytes = toText(a[1]);
        byteCount = static_cast<std::size_t>(result);
    }
    std::size_t vectorCount = 0;
    if (call.number == SYS_writev) {
        vectorCount = static_cast<std::size_t>(a[2]);
        byteCount = static_cast<std::size_t>(result);
    }
    const RecordHead head{&call, result, a, std::strlen(path), std::strlen(target), byteCount};
    append(&head, sizeof head);
    append(path, head.pathSize);
    append(target, head.targetSize);
    if (vectorCount == 0)
        return append(bytes, byteCount);
    const auto* const vectors = reinterpret_cast<const iovec*>(a[1]);
    for (std::size_t i = 0; i < vectorCount && byteCount > 0; ++i) {
        const std::size_t size = std::min(vectors[i].iov_len, byteCount);
        append(vectors[i].iov_base, size);
        byteCount -= size;
    }
}

/// Reads or writes half of what is asked for.
long passHalf(const TrappedCall& call, Arguments a) {
    if (call.number == SYS_readv || call.number == SYS_writev) {
        auto* const first = reinterpret_cast<const iovec*>(a[1]);
        iovec half{first->iov_base, (first->iov_len + 1) / 2};
        a.values[1] = reinterpret_cast<long>(&half);
        a.values[2] = 1;
        return pass(call.number, a);
    }
    a.values[2] = (a[2] + 1) / 2;
    return pass(call.number, a);
}

long fail(const TrappedCall& call, const Arguments& a) {
    int error = call.errors.at(static_cast<std::size_t>(plan.variant % faultVariants));
    if (error == cutShort && call.number == SYS_fallocate)
        error = ENOSPC;
    // Who tries again after EINTR may do so until it is over.
    if (plan.isLasting && (error == EINTR || error == cutShort))
        error = EIO;
    if (injected++ == 0) {
        firstCall = &call;
        firstError = error;
        firstPath[0] = '\0';
        if (call.subject != Subject::descriptor && a[call.subject == Subject::path ? 0 : 1] != 0) {
            const auto* const path = reinterpret_cast<const char*>(a[call.subject == Subject::path ? 0 : 1]);
            std::strncpy(firstPath.data(), path, firstPath.size() - 1);
        }
    }
    if (error == cutShort)
        return passHalf(call, a);
    // The descriptor is gone all the same.
    if (call.number == SYS_close)
        pass(call.number, a);
    return -error;
}

long answer(const TrappedCall& call, const Arguments& a) {
    if (!isActive || !isCounted(call, a))
        return pass(call.number, a);
    ++calls;
    if (calls == plan.killAt) {
        makeSystemCall(SYS_kill, makeSystemCall(SYS_getpid, 0, 0, 0, 0, 0, 0), SIGKILL, 0, 0, 0, 0);
        for (;;)
            makeSystemCall(SYS_pause, 0, 0, 0, 0, 0, 0);
    }
    const bool fails = calls == plan.failAt || (plan.isLasting && plan.failAt != 0 && calls > plan.failAt);
    const long result = fails ? fail(call, a) : pass(call.number, a);
    if (plan.isRecording && result >= 0)
        addToRecord(call, a, result);
    return result;
}

void handleTrap(int /*signal*/, siginfo_t* info, void* context) {
    auto& registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
    const Arguments a{{static_cast<long>(registers[REG_RDI]), static_cast<long>(registers[REG_RSI]),
                       static_cast<long>(registers[REG_RDX]), static_cast<long>(registers[REG_R10]),
                       static_cast<long>(registers[REG_R8]), static_cast<long>(registers[REG_R9])}};
    for (const TrappedCall& call : trappedCalls) {
        if (call.number == info->si_syscall) {
            registers[REG_RAX] = answer(call, a);
            return;
        }
    }
}

}  // namespace

void trapSystemCalls() {
    struct sigaction action {};
    action.sa_sigaction = handleTrap;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGSYS, &action, nullptr);

    const auto inside = reinterpret_cast<std::uintptr_t>(systemCallReturn);
    const auto count = static_cast<std::uint8_t>(trappedCalls.size());
    std::vector<sock_filter> filter{BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    for (std::uint8_t i = 0; i < count; ++i) {
        const auto toCheck = static_cast<std::uint8_t>(count - i);
        filter.push_back(
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(trappedCalls.at(i).number), toCheck, 0));
    }
    constexpr std::uint32_t place = offsetof(seccomp_data, instruction_pointer);
    for (const sock_filter& instruction : {
             sock_filter(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)),
             sock_filter(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, place)),
             sock_filter(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(inside), 0, 3)),
             sock_filter(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, place + 4)),
             sock_filter(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(inside >> 32U), 0, 1)),
             sock_filter(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)),
             sock_filter(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP)),
         })
        filter.push_back(instruction);
    const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, 0, &program) != 0)
        throw std::runtime_error("the kernel does not let its system calls be trapped");
}

void startFaults(const FaultPlan& newPlan) {
    plan = newPlan;
    calls = injected = 0;
    recordEnd = 0;
    isActive = true;
}

FaultCounts stopFaults() {
    isActive = false;
    FaultCounts counts{calls, injected, {}, 0};
    if (injected > 0) {
        counts.error = firstError;
        counts.what = std::string(firstCall->name) + "(" + firstPath.data() + ") " +
                      (firstError == cutShort ? "cut short" : std::strerror(firstError));
    }
    return counts;
}

std::vector<RecordedCall> takeRecord() {
    std::vector<RecordedCall> result;
    for (const char* place = record.data(); place < record.data() + recordEnd;) {
        RecordHead head;
        std::memcpy(&head, place, sizeof head);
        place += sizeof head;
        RecordedCall call{head.call->name,
                          static_cast<int>(head.result),
                          static_cast<int>(head.arguments[0]),
                          0,
                          -1,
                          std::string(place, head.pathSize),
                          std::string(place + head.pathSize, head.targetSize),
                          std::string(place + head.pathSize + head.targetSize, head.byteCount)};
        place += head.pathSize + head.targetSize + head.byteCount;
        if (head.call->number == SYS_openat)
            call.flags = static_cast<int>(head.arguments[2]);
        if (head.call->number == SYS_pwrite64)
            call.offset = head.arguments[3];
        if (head.call->number == SYS_ftruncate)
            call.offset = head.arguments[1];
        result.push_back(std::move(call));
    }
    return result;
}

}  // namespace test
