// The framework itself: its bundles and what they are doing.
//
// May be used from any thread. A mutex guards the records; it is never held while activators, service objects or the
// dynamic linker run. What excludes two threads from one bundle meanwhile is the record's `worker`.
#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "cppmicroservices/FrameworkEvent.h"
#include "embedded/cppmicroservices/src/Records.hpp"
#include "embedded/cppmicroservices/src/ServiceRegistry.hpp"

namespace cppmicroservices {
inline namespace project_metadata {
namespace detail {

class FrameworkCore : public std::enable_shared_from_this<FrameworkCore> {
public:
    using BundlePtr = std::shared_ptr<BundleRecord>;

    FrameworkCore();
    ~FrameworkCore();
    FrameworkCore(const FrameworkCore&) = delete;
    FrameworkCore& operator=(const FrameworkCore&) = delete;

    // The contracts are those of Bundle, BundleContext and Framework.
    void start(const BundlePtr& bundle);
    void stop(const BundlePtr& bundle);
    void uninstall(const BundlePtr& bundle);
    BundlePtr install(const ContextRecord& context, const std::string& location);

    void init();
    void startFramework();
    void stopFramework();
    FrameworkEvent::Type waitForStop(std::chrono::milliseconds timeout);

    Bundle::State stateOf(const BundleRecord& bundle) const;
    std::shared_ptr<ContextRecord> contextOf(const BundleRecord& bundle) const;
    std::vector<BundlePtr> bundles() const;
    const BundlePtr& systemBundle() const { return system_; }
    ServiceRegistry& services() { return services_; }

private:
    using Lock = std::unique_lock<std::mutex>;

    bool awaitTurn(Lock& lock, const BundleRecord& bundle);
    void endTurn(BundleRecord& bundle, Bundle::State state);
    std::exception_ptr deactivate(Lock& lock, BundleRecord& bundle);
    bool isRunning() const;
    BundlePtr findByLocation(const std::string& location) const;
    void initLocked();
    void shutDown();

    const BundlePtr system_;
    ServiceRegistry services_;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<BundlePtr> bundles_;
    long lastBundleId_ = 0;
    unsigned long completedStops_ = 0;
    std::thread stopper_;
};

/// Makes `context` the one that the bundle's code gets from GetBundleContext. There is one for the process: of several
/// frameworks that start the same bundle, the last one's.
void publishContext(const BundleDescriptor& bundle, const std::shared_ptr<ContextRecord>& context);

}  // namespace detail
}  // namespace project_metadata
}  // namespace cppmicroservices
