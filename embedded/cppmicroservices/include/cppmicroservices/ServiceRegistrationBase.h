// What the one who registered a service holds, without the interface types.
//
// Threads: a registration is a value; one object is used by one thread at a time. Of several threads that unregister
// the same service through copies, one succeeds.
#pragma once

#include <memory>
#include <string>

#include "cppmicroservices/GlobalConfig.h"
#include "cppmicroservices/ServiceReference.h"

namespace cppmicroservices {
inline namespace project_metadata {

class US_Framework_EXPORT ServiceRegistrationBase {
public:
    /// Whether this was ever given a service; stays true when the service is gone.
    explicit operator bool() const { return record_ != nullptr; }

    /// A reference to the service under `interfaceId`. Throws std::logic_error when it is not registered (any more).
    ServiceReferenceBase GetReference(const std::string& interfaceId = std::string()) const;

    /// Takes the service out of the registry and lets go of its object; those who hold the object keep it. Throws
    /// std::logic_error when the service is not registered (any more).
    void Unregister();

    bool operator==(const ServiceRegistrationBase& other) const { return record_ == other.record_; }

protected:
    ServiceRegistrationBase() = default;

private:
    friend struct detail::Access;

    std::shared_ptr<detail::ServiceRecord> record_;
};

}  // namespace project_metadata
}  // namespace cppmicroservices
