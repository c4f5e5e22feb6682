#include "host/Interruption.hpp"

#include <atomic>

namespace host {

namespace {

std::atomic<bool> isRequested = false;
std::atomic<bool> isIgnored = false;
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler must not wait for a lock");

}  // namespace

const char* InterruptedException::what() const noexcept {
    return "it was interrupted";
}

void Interruption::request() noexcept {
    isRequested = true;
}

void Interruption::ignore() noexcept {
    isIgnored = true;
}

void Interruption::throwIfRequested() {
    if (isRequested && !isIgnored)
        throw InterruptedException();
}

}  // namespace host
