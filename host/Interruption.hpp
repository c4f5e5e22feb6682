/// The wish of a user that what goes on should stop, such as a click on a button "Cancel".
///
///     host::Interruption cancel;                        // on which the button calls request()
///     try {
///         const host::Interruption::Scope scope(cancel);
///         store->setNodes(nodes);
///     } catch (const host::InterruptedException&) {     // everything is as it was before
///     }
///
/// Long operations of the library, of the stores and of the command ask for it wherever they can still leave everything
/// as it was. The library brings it along: a host uses this header, and implements only the others.
#pragma once

#include <atomic>
#include <exception>

#include "host/Export.hpp"

namespace host {

/// The operation was stopped because the user wished so. Like an error of the library it leaves everything as it was,
/// but it is none: who catches those lets it pass.
class HOST_EXPORT InterruptedException : public std::exception {
public:
    const char* what() const noexcept override;
};

/// One wish. It must live as long as anybody may ask for it. Every operation may be called from any thread.
class HOST_EXPORT Interruption {
public:
    Interruption() = default;
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    /// Wishes that what goes on should stop, for good. May be called from a signal handler.
    void request() noexcept { isRequested_ = true; }

    bool isRequested() const noexcept { return isRequested_; }

    class Scope;

    /// For operations that can be stopped here.
    /// @throws InterruptedException if a wish is made that one of the scopes around the caller is for, unless one of
    ///         these ignores it. Outside of all scopes it does nothing.
    static void throwIfRequested();

    /// To the end of the innermost scope around the caller, no wish stops what goes on in it: what has been done cannot
    /// be taken back any more, and what is left must follow. Outside of all scopes it does nothing.
    static void ignore() noexcept;

private:
    std::atomic<bool> isRequested_ = false;
    static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler must not wait for a lock");
};

/// As long as it lives, what its thread does stops when `interruption` is requested. Scopes may be nested; the first
/// that begins is the last that ends. It belongs to the thread that made it.
class HOST_EXPORT Interruption::Scope {
public:
    explicit Scope(const Interruption& interruption) noexcept;
    ~Scope();

    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

private:
    friend class Interruption;

    const Interruption& interruption_;
    Scope* const outer_;
    bool isIgnored_ = false;
};

}  // namespace host
