// An installed bundle: a shared object that registers services while it is active.
//
// A bundle is installed through a BundleContext, started and stopped here. Its shared object stays in the process.
//
// Threads: a Bundle is a handle. One handle is used by one thread at a time; handles of the same bundle may be used
// by several. A start or stop waits for the one that another thread has in progress on the same bundle. Activators
// are called without any lock held.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "cppmicroservices/GlobalConfig.h"

namespace cppmicroservices {
inline namespace project_metadata {

class BundleContext;

namespace detail {
struct Access;
struct BundleRecord;
class FrameworkCore;
}  // namespace detail

class US_Framework_EXPORT Bundle {
public:
    enum State : std::uint32_t {
        STATE_UNINSTALLED = 0x00000001,
        STATE_INSTALLED = 0x00000002,
        STATE_RESOLVED = 0x00000004,
        STATE_STARTING = 0x00000008,
        STATE_STOPPING = 0x00000010,
        STATE_ACTIVE = 0x00000020
    };

    /// An invalid handle: every operation but the comparisons throws std::invalid_argument "invalid bundle".
    Bundle() = default;

    /// Whether this refers to a bundle, in whatever state.
    explicit operator bool() const { return record_ != nullptr; }

    bool operator==(const Bundle& other) const { return record_ == other.record_; }
    bool operator!=(const Bundle& other) const { return !(*this == other); }

    State GetState() const;

    /// The context of an active bundle or of one that is starting or stopping; otherwise an invalid one.
    BundleContext GetBundleContext() const;

    /// 0 for the framework's own bundle; counted up with every installation.
    long GetBundleId() const;

    /// The path that the bundle was installed from.
    std::string GetLocation() const;
    std::string GetSymbolicName() const;

    /// Creates the activator and lets it start; no effect on an active bundle. When the activator throws, the bundle
    /// is back in STATE_RESOLVED, what it registered is unregistered, and std::runtime_error names the bundle and
    /// the cause, with the activator's exception nested inside. Throws std::logic_error for an uninstalled bundle
    /// and std::runtime_error for one whose framework has stopped.
    void Start();

    /// Lets the activator stop, destroys it and unregisters what the bundle registered; no effect on a bundle that
    /// is not active. When the activator throws, the bundle is stopped all the same, and std::runtime_error names
    /// the bundle and the cause. On the framework itself: see Framework.
    void Stop();

    /// Stops the bundle and takes it out of the framework. A failure of its activator to stop is not reported: call
    /// Stop first to see it. Throws std::logic_error when it was uninstalled before.
    void Uninstall();

protected:
    detail::FrameworkCore& core() const;

private:
    friend struct detail::Access;

    std::shared_ptr<detail::BundleRecord> record_;
    std::shared_ptr<detail::FrameworkCore> core_;
};

}  // namespace project_metadata
}  // namespace cppmicroservices
