/// What goes on belongs to a thread, and so do the scopes around it. Their list needs no destruction, so that it can be
/// asked until the thread is gone.
#include "host/Interruption.hpp"

namespace host {

namespace {

thread_local Interruption::Scope* innermost = nullptr;

}  // namespace

const char* InterruptedException::what() const noexcept {
    return "it was interrupted";
}

Interruption::Scope::Scope(const Interruption& interruption) noexcept : interruption_(interruption), outer_(innermost) {
    innermost = this;
}

Interruption::Scope::~Scope() {
    innermost = outer_;
}

void Interruption::throwIfRequested() {
    bool isWished = false;
    for (const Scope* scope = innermost; scope; scope = scope->outer_) {
        if (scope->isIgnored_)
            return;
        isWished = isWished || scope->interruption_.isRequested();
    }
    if (isWished)
        throw InterruptedException();
}

void Interruption::ignore() noexcept {
    if (innermost)
        innermost->isIgnored_ = true;
}

}  // namespace host
