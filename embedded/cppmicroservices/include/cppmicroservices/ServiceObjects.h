// Gets the object behind a service reference, as often as wanted.
//
// Threads: GetService may be called from several threads, also while the service is unregistered.
#pragma once

#include <memory>

#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/ServiceReference.h"

namespace cppmicroservices {
inline namespace project_metadata {

class US_Framework_EXPORT ServiceObjectsBase {
public:
    ServiceObjectsBase(const ServiceObjectsBase&) = delete;
    ServiceObjectsBase& operator=(const ServiceObjectsBase&) = delete;
    ServiceObjectsBase(ServiceObjectsBase&&) noexcept = default;
    ServiceObjectsBase& operator=(ServiceObjectsBase&&) noexcept = default;

protected:
    ServiceObjectsBase(const BundleContext& context, const ServiceReferenceBase& reference);
    ~ServiceObjectsBase() = default;

    std::shared_ptr<void> GetService() const;
    ServiceReferenceBase GetReference() const { return reference_; }

private:
    BundleContext context_;
    ServiceReferenceU reference_;
};

template <class S>
class ServiceObjects : private ServiceObjectsBase {
    static_assert(!std::is_void_v<S>, "name the interface of the service");

public:
    /// The service object; null when the service is gone. It stays alive as long as the result does, also when the
    /// service goes. Throws std::runtime_error "The bundle context is no longer valid" for a service that is there
    /// and a context that is not.
    std::shared_ptr<S> GetService() const { return std::static_pointer_cast<S>(ServiceObjectsBase::GetService()); }

    ServiceReference<S> GetServiceReference() const { return ServiceObjectsBase::GetReference(); }

private:
    friend class BundleContext;

    ServiceObjects(const BundleContext& context, const ServiceReference<S>& reference)
        : ServiceObjectsBase(context, reference) {}
};

}  // namespace project_metadata
}  // namespace cppmicroservices
