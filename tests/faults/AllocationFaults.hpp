/// Makes allocations of this program fail: `operator new`, and malloc and its kin, which the libraries in C use. Under
/// the sanitizers, which bring a malloc of their own, only `operator new`.
#pragma once

namespace test {

/// From now on, until `stopAllocationFaults`, the allocation with the number `failAt`, counted from 1, fails; if
/// `isLasting`, all after it too. For processes with one thread.
void startAllocationFaults(long failAt, bool isLasting) noexcept;

struct AllocationCounts {
    long allocations;  ///< how many there were
    long failed;
};

AllocationCounts stopAllocationFaults() noexcept;

}  // namespace test
