/// The wish of the user that what goes on should stop. Long operations ask for it wherever they can still leave
/// everything as it was. Every operation may be called from any thread.
#pragma once

#include <exception>

#include "host/Export.hpp"

namespace host {

/// The operation was stopped because the user wished so.
class HOST_EXPORT InterruptedException : public std::exception {
public:
    const char* what() const noexcept override;
};

struct HOST_EXPORT Interruption {
    Interruption() = delete;

    /// Wishes that what goes on should stop. May be called from a signal handler.
    static void request() noexcept;

    /// From now on the wish is ignored, because what has been done cannot be taken back any more and what is left
    /// must follow.
    static void ignore() noexcept;

    /// @throws InterruptedException if it is wished and not ignored
    static void throwIfRequested();
};

}  // namespace host
