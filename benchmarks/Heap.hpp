/// Counts what the whole process takes from the heap, with malloc and everything above it.
///
/// One thread at a time may measure; what the other threads take meanwhile is counted too.
#pragma once

#include <cstdint>

namespace benchmarks {

struct HeapUse {
    std::int64_t allocations = 0;  ///< how many blocks were taken
    std::int64_t held = 0;         ///< bytes taken and not given back, the heap's own overhead included; negative if
                                   ///< more was given back
    std::int64_t peak = 0;         ///< the most that `held` ever was
};

namespace detail {
void startCounting();
HeapUse stopCounting();
}  // namespace detail

/// What `work` takes from the heap until it returns.
template <class Work>
HeapUse measureHeap(const Work& work) {
    detail::startCounting();
    work();
    return detail::stopCounting();
}

}  // namespace benchmarks
