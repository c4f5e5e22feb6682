// A bundle changes its state in turns: a thread waits for its turn, marks the record with itself as `worker`, lets go
// of the mutex while the activator runs, takes it again and ends the turn. The framework stops in a thread of its own,
// which stops each bundle in such a turn.
#include "embedded/cppmicroservices/src/FrameworkCore.hpp"

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <utility>

#include "cppmicroservices/Constants.h"

namespace cppmicroservices {
inline namespace project_metadata {
namespace detail {
namespace {

std::string describe(const BundleRecord& bundle) {
    return "Bundle " + bundle.symbolicName + " (location=" + bundle.location + ")";
}

std::string messageInFlight() {
    try {
        throw;
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "unknown";
    }
}

/// Inside a catch block: what was caught, nested in an error that says which bundle failed at what.
[[noreturn]] void throwNested(const std::string& what) {
    std::throw_with_nested(std::runtime_error(what + ": " + messageInFlight()));
}

void requireInstalled(const BundleRecord& bundle) {
    if (bundle.state == Bundle::STATE_UNINSTALLED)
        throw std::logic_error(describe(bundle) + " is uninstalled");
}

std::unique_ptr<BundleActivator> createActivator(const BundleRecord& bundle) {
    if (!bundle.object.createActivator)
        throw std::runtime_error("activator constructor not found");
    return std::unique_ptr<BundleActivator>(bundle.object.createActivator());
}

}  // namespace

FrameworkCore::FrameworkCore()
    : system_(std::make_shared<BundleRecord>(0, Constants::SYSTEM_BUNDLE_LOCATION,
                                             Constants::SYSTEM_BUNDLE_SYMBOLICNAME, SharedObject())) {}

FrameworkCore::~FrameworkCore() {
    if (stopper_.get_id() == std::this_thread::get_id())
        stopper_.detach();  // it held the last reference, and has nothing left to do
    else if (stopper_.joinable())
        stopper_.join();
    // An activator that is destroyed here sees that there is no context any more.
    for (const auto& bundle : bundles_) {
        if (bundle->context)
            services_.retire(*bundle->context);
    }
    for (const auto& bundle : bundles_)
        bundle->activator.reset();
}

/// Waits until no other thread starts or stops the bundle. False: it is this thread, further up the stack.
bool FrameworkCore::awaitTurn(Lock& lock, const BundleRecord& bundle) {
    if (bundle.worker == std::this_thread::get_id())
        return false;
    changed_.wait(lock, [&] { return bundle.worker == std::thread::id(); });
    return true;
}

void FrameworkCore::endTurn(BundleRecord& bundle, Bundle::State state) {
    bundle.state = state;
    bundle.worker = {};
    if (state != Bundle::STATE_ACTIVE)
        bundle.context = nullptr;
    changed_.notify_all();
}

void FrameworkCore::start(const BundlePtr& bundle) {
    Lock lock(mutex_);
    if (!awaitTurn(lock, *bundle)) {
        if (bundle->state == Bundle::STATE_STOPPING)
            throw std::runtime_error(describe(*bundle) + ", start called from BundleActivator::Stop");
        return;
    }
    requireInstalled(*bundle);
    if (!isRunning() || std::find(bundles_.begin(), bundles_.end(), bundle) == bundles_.end())
        throw std::runtime_error(describe(*bundle) + " belongs to a stopped framework");
    if (bundle->state == Bundle::STATE_ACTIVE)
        return;
    const auto context = std::make_shared<ContextRecord>(weak_from_this(), bundle);
    bundle->context = context;
    bundle->state = Bundle::STATE_STARTING;
    bundle->worker = std::this_thread::get_id();
    lock.unlock();

    std::unique_ptr<BundleActivator> activator;
    try {
        publishContext(*bundle->object.descriptor, context);
        activator = createActivator(*bundle);
        activator->Start(Access::handle<BundleContext>(context));
    } catch (...) {
        activator.reset();
        services_.retire(*context);
        lock.lock();
        endTurn(*bundle, Bundle::STATE_RESOLVED);
        throwNested(describe(*bundle) + " start failed");
    }
    lock.lock();
    bundle->activator = std::move(activator);
    endTurn(*bundle, Bundle::STATE_ACTIVE);
}

/// Returns the failure of the activator. The caller ends the turn.
std::exception_ptr FrameworkCore::deactivate(Lock& lock, BundleRecord& bundle) {
    const auto context = bundle.context;
    auto activator = std::move(bundle.activator);
    bundle.state = Bundle::STATE_STOPPING;
    bundle.worker = std::this_thread::get_id();
    lock.unlock();

    std::exception_ptr failure;
    try {
        try {
            activator->Stop(Access::handle<BundleContext>(context));
        } catch (...) {
            throwNested(describe(bundle) + ", BundleActivator::Stop() failed");
        }
    } catch (...) {
        failure = std::current_exception();
    }
    activator.reset();
    services_.retire(*context);
    lock.lock();
    return failure;
}

void FrameworkCore::stop(const BundlePtr& bundle) {
    Lock lock(mutex_);
    if (!awaitTurn(lock, *bundle)) {
        if (bundle->state == Bundle::STATE_STARTING)
            throw std::runtime_error(describe(*bundle) + ", stop called from BundleActivator::Start");
        return;
    }
    requireInstalled(*bundle);
    if (bundle->state != Bundle::STATE_ACTIVE)
        return;
    const auto failure = deactivate(lock, *bundle);
    endTurn(*bundle, Bundle::STATE_RESOLVED);
    lock.unlock();
    if (failure)
        std::rethrow_exception(failure);
}

void FrameworkCore::uninstall(const BundlePtr& bundle) {
    if (bundle == system_)
        throw std::runtime_error("Cannot uninstall a system bundle.");
    Lock lock(mutex_);
    if (!awaitTurn(lock, *bundle))
        throw std::runtime_error(describe(*bundle) + ", uninstall called from its own activator");
    requireInstalled(*bundle);
    if (bundle->state == Bundle::STATE_ACTIVE)
        deactivate(lock, *bundle);
    bundles_.erase(std::remove(bundles_.begin(), bundles_.end(), bundle), bundles_.end());
    endTurn(*bundle, Bundle::STATE_UNINSTALLED);
}

FrameworkCore::BundlePtr FrameworkCore::install(const ContextRecord& context, const std::string& location) {
    const auto failure = [&](const std::string& cause) {
        return std::runtime_error("Failed to install bundle library at " + location + ": " + cause);
    };
    Lock lock(mutex_);
    if (auto known = findByLocation(location))
        return known;
    lock.unlock();

    SharedObject object;
    try {
        object = loadBundle(location);
    } catch (const std::runtime_error& error) {
        throw failure(error.what());
    }

    lock.lock();
    if (auto known = findByLocation(location))
        return known;
    if (!context.valid || !isRunning())
        throw IllegalStateException("The bundle context is no longer valid");
    for (const auto& other : bundles_) {
        if (other->symbolicName == object.descriptor->symbolicName)
            throw failure("a bundle with same symbolic name is already installed, " + describe(*other));
    }
    bundles_.push_back(
        std::make_shared<BundleRecord>(++lastBundleId_, location, object.descriptor->symbolicName, object));
    return bundles_.back();
}

FrameworkCore::BundlePtr FrameworkCore::findByLocation(const std::string& location) const {
    const auto found = std::find_if(bundles_.begin(), bundles_.end(), [&](const auto& bundle) {
        return bundle != system_ && bundle->location == location;
    });
    return found == bundles_.end() ? nullptr : *found;
}

Bundle::State FrameworkCore::stateOf(const BundleRecord& bundle) const {
    const Lock lock(mutex_);
    return bundle.state;
}

std::shared_ptr<ContextRecord> FrameworkCore::contextOf(const BundleRecord& bundle) const {
    const Lock lock(mutex_);
    return bundle.context;
}

std::vector<FrameworkCore::BundlePtr> FrameworkCore::bundles() const {
    const Lock lock(mutex_);
    return bundles_;
}

bool FrameworkCore::isRunning() const {
    return system_->state == Bundle::STATE_STARTING || system_->state == Bundle::STATE_ACTIVE;
}

void FrameworkCore::init() {
    const Lock lock(mutex_);
    initLocked();
}

void FrameworkCore::startFramework() {
    const Lock lock(mutex_);
    initLocked();
    system_->state = Bundle::STATE_ACTIVE;
}

void FrameworkCore::initLocked() {
    if (system_->state == Bundle::STATE_STOPPING)
        throw std::logic_error("The framework is stopping");
    if (!isRunning()) {
        system_->context = std::make_shared<ContextRecord>(weak_from_this(), system_);
        system_->state = Bundle::STATE_STARTING;
        bundles_.push_back(system_);
    }
}

void FrameworkCore::stopFramework() {
    const Lock lock(mutex_);
    if (!isRunning())
        return;
    if (stopper_.joinable())
        stopper_.join();  // of an earlier stop that nobody waited for; it has ended but for its last instructions
    stopper_ = std::thread([self = shared_from_this()] { self->shutDown(); });
    system_->state = Bundle::STATE_STOPPING;
}

/// Runs in a thread of its own. From here on no bundle starts and none is installed, so one look at them is enough.
void FrameworkCore::shutDown() {
    auto stopping = bundles();
    for (auto bundle = stopping.rbegin(); bundle != stopping.rend(); ++bundle) {
        if (*bundle == system_)
            continue;
        try {
            stop(*bundle);
        } catch (const std::exception&) {  // a bundle whose activator fails is stopped all the same
        }
    }
    services_.retire(*system_->context);

    const Lock lock(mutex_);
    for (const auto& bundle : bundles_)
        bundle->state = Bundle::STATE_INSTALLED;
    bundles_.clear();
    ++completedStops_;
    endTurn(*system_, Bundle::STATE_RESOLVED);
}

FrameworkEvent::Type FrameworkCore::waitForStop(std::chrono::milliseconds timeout) {
    Lock lock(mutex_);
    const auto before = completedStops_;
    const auto hasStopped = [&] { return completedStops_ != before; };
    if (isRunning() || system_->state == Bundle::STATE_STOPPING) {
        if (timeout == std::chrono::milliseconds::zero())
            changed_.wait(lock, hasStopped);
        else if (!changed_.wait_for(lock, timeout, hasStopped))
            return FrameworkEvent::FRAMEWORK_WAIT_TIMEDOUT;
    } else if (before == 0) {
        return FrameworkEvent::FRAMEWORK_ERROR;
    }
    if (std::thread stopper; system_->state == Bundle::STATE_RESOLVED && stopper_.joinable()) {
        stopper.swap(stopper_);
        lock.unlock();
        stopper.join();
    }
    return FrameworkEvent::FRAMEWORK_STOPPED;
}

}  // namespace detail
}  // namespace project_metadata
}  // namespace cppmicroservices
