#include "tests/faults/AllocationFaults.hpp"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

bool isActive = false;
bool isLasting = false;
long failAt = 0;
long allocations = 0;
long failed = 0;

bool mustFail() noexcept {
    if (!isActive)
        return false;
    ++allocations;
    if (allocations != failAt && !(isLasting && allocations > failAt))
        return false;
    ++failed;
    errno = ENOMEM;
    return true;
}

}  // namespace

#ifdef ADDRESS_SANITIZER

void* operator new(std::size_t size) {
    if (void* const place = mustFail() ? nullptr : std::malloc(size != 0 ? size : 1))
        return place;
    throw std::bad_alloc();
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return mustFail() ? nullptr : std::malloc(size != 0 ? size : 1);
}

void operator delete(void* place) noexcept {
    std::free(place);
}

void operator delete(void* place, std::size_t /*size*/) noexcept {
    std::free(place);
}

#else

// The library's `operator new` calls these.
extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* place, std::size_t size);

void* malloc(std::size_t size) {
    return mustFail() ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
    return mustFail() ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* place, std::size_t size) {
    return mustFail() ? nullptr : __libc_realloc(place, size);
}
}

#endif

namespace test {

void startAllocationFaults(long at, bool lasting) noexcept {
    failAt = at;
    isLasting = lasting;
    allocations = failed = 0;
    isActive = true;
}

AllocationCounts stopAllocationFaults() noexcept {
    isActive = false;
    return {allocations, failed};
}

}  // namespace test
