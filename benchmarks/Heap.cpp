// Takes the place of the allocation functions of glibc in the program and in all libraries it loads, and hands every
// call on to glibc. While nothing is counted that costs one test of a variable.

#include "benchmarks/Heap.hpp"

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>

extern "C" {
void* __libc_malloc(std::size_t size);                           // NOLINT(bugprone-reserved-identifier): glibc's names
void* __libc_calloc(std::size_t count, std::size_t size);        // NOLINT(bugprone-reserved-identifier)
void* __libc_realloc(void* block, std::size_t size);             // NOLINT(bugprone-reserved-identifier)
void* __libc_memalign(std::size_t alignment, std::size_t size);  // NOLINT(bugprone-reserved-identifier)
void __libc_free(void* block);                                   // NOLINT(bugprone-reserved-identifier)
}

namespace benchmarks {

namespace {

std::atomic<bool> isCounting{false};
HeapUse use;

/// The block and the word in which glibc keeps its size.
std::int64_t bytesOf(void* block) {
    return block ? static_cast<std::int64_t>(malloc_usable_size(block) + sizeof(std::size_t)) : 0;
}

void* taken(void* block) {
    if (isCounting.load(std::memory_order_relaxed) && block) {
        ++use.allocations;
        use.held += bytesOf(block);
        use.peak = std::max(use.peak, use.held);
    }
    return block;
}

void givenBack(void* block) {
    if (isCounting.load(std::memory_order_relaxed))
        use.held -= bytesOf(block);
}

}  // namespace

namespace detail {

void startCounting() {
    use = HeapUse();
    isCounting = true;
}

HeapUse stopCounting() {
    isCounting = false;
    return use;
}

}  // namespace detail

}  // namespace benchmarks

#pragma GCC visibility push(default)  // the libraries shall find them too

extern "C" {

void* malloc(std::size_t size) {
    return benchmarks::taken(__libc_malloc(size));
}

void* calloc(std::size_t count, std::size_t size) {
    return benchmarks::taken(__libc_calloc(count, size));
}

void* realloc(void* block, std::size_t size) {
    const std::int64_t before = benchmarks::isCounting ? benchmarks::bytesOf(block) : 0;
    void* moved = __libc_realloc(block, size);
    if (benchmarks::isCounting && (moved || size == 0))
        benchmarks::use.held -= before;
    return benchmarks::taken(moved);
}

void* memalign(std::size_t alignment, std::size_t size) {
    return benchmarks::taken(__libc_memalign(alignment, size));
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return benchmarks::taken(__libc_memalign(alignment, size));
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
    *block = benchmarks::taken(__libc_memalign(alignment, size));
    return *block || size == 0 ? 0 : ENOMEM;
}

void free(void* block) {
    benchmarks::givenBack(block);
    __libc_free(block);
}
}

#pragma GCC visibility pop
