// What the one who registered a service under the given interfaces holds. Threads: see ServiceRegistrationBase.h.
#pragma once

#include "cppmicroservices/ServiceRegistrationBase.h"

namespace cppmicroservices {
inline namespace project_metadata {

template <class First, class... Others>
class ServiceRegistration : public ServiceRegistrationBase {
public:
    /// No service.
    ServiceRegistration() = default;

    /// A reference to the service through one of its interfaces, the first unless another is named. Throws
    /// std::logic_error when the service is not registered (any more).
    template <class Interface = First>
    ServiceReference<Interface> GetReference() const {
        static_assert((std::is_same_v<Interface, First> || ... || std::is_same_v<Interface, Others>),
                      "Requested interface type not available");
        return ServiceRegistrationBase::GetReference(us_service_interface_iid<Interface>());
    }

private:
    friend class BundleContext;

    ServiceRegistration(const ServiceRegistrationBase& base) : ServiceRegistrationBase(base) {}
};

/// A registration without interface types.
template <>
class ServiceRegistration<void> : public ServiceRegistrationBase {
public:
    ServiceRegistration() = default;
    ServiceRegistration(const ServiceRegistrationBase& base) : ServiceRegistrationBase(base) {}
};

using ServiceRegistrationU = ServiceRegistration<void>;

}  // namespace project_metadata
}  // namespace cppmicroservices
