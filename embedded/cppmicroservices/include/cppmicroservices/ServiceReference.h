// A reference to a registered service that implements the interface S. Threads: see ServiceReferenceBase.h.
#pragma once

#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/ServiceReferenceBase.h"

namespace cppmicroservices {
inline namespace project_metadata {

template <class S>
class ServiceReference : public ServiceReferenceBase {
public:
    using ServiceType = S;

    /// Refers to nothing.
    ServiceReference() = default;

    /// Refers to the same service as `base`; to nothing when that does not implement S.
    ServiceReference(const ServiceReferenceBase& base) : ServiceReferenceBase(base) {
        if constexpr (!std::is_void_v<S>)
            bindTo(us_service_interface_iid<S>());
    }

    using ServiceReferenceBase::operator=;
};

/// A reference without an interface type.
using ServiceReferenceU = ServiceReference<void>;

}  // namespace project_metadata
}  // namespace cppmicroservices
