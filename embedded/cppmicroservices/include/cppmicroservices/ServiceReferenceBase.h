// A reference to a registered service, without its interface type.
//
// Threads: a reference is a value; one object is used by one thread at a time. References to the same service may
// be used by several threads, also while it is unregistered.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "cppmicroservices/Any.h"
#include "cppmicroservices/GlobalConfig.h"

namespace cppmicroservices {
inline namespace project_metadata {

class Bundle;

namespace detail {
struct Access;
struct ServiceRecord;
}  // namespace detail

class US_Framework_EXPORT ServiceReferenceBase {
public:
    /// Whether there is a service, and it is still registered.
    explicit operator bool() const;

    /// Lets go of the service.
    ServiceReferenceBase& operator=(std::nullptr_t);

    /// The property named `key` in any case; an empty value when there is none. Goes on working after the service
    /// has been unregistered.
    Any GetProperty(const std::string& key) const;

    /// The bundle that registered the service; an invalid one when the service is gone.
    Bundle GetBundle() const;

    /// The interface that this reference was asked for under; empty when none.
    std::string GetInterfaceId() const { return interfaceId_; }

    /// Whether the service was registered under `interfaceId`.
    bool IsConvertibleTo(const std::string& interfaceId) const;

    /// The order is that of ranking: the lesser one has the lower ranking, or the same and the higher service id.
    bool operator<(const ServiceReferenceBase& other) const;
    /// Whether both refer to the same registration, whatever the interface.
    bool operator==(const ServiceReferenceBase& other) const { return record_ == other.record_; }

protected:
    ServiceReferenceBase() = default;

    /// Keeps the service when it implements `interfaceId`, otherwise lets go of it.
    void bindTo(const std::string& interfaceId);

private:
    friend struct detail::Access;

    std::shared_ptr<detail::ServiceRecord> record_;
    std::string interfaceId_;
};

}  // namespace project_metadata
}  // namespace cppmicroservices
