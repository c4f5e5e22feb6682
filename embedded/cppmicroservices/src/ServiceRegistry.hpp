// The registered services of a framework. May be used from any thread; no object of a client is created, destroyed or
// called under its mutex.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "embedded/cppmicroservices/src/Records.hpp"

namespace cppmicroservices {
inline namespace project_metadata {
namespace detail {

class ServiceRegistry {
public:
    using Services = std::vector<std::shared_ptr<ServiceRecord>>;

    /// Throws IllegalStateException when the context that registers it has become invalid.
    void add(const std::shared_ptr<ServiceRecord>& service);

    void remove(const std::shared_ptr<ServiceRecord>& service);

    /// Makes the context invalid and unregisters what was registered through it.
    void retire(ContextRecord& context);

    /// All services in the order for listing. Throws IllegalStateException when the context has become invalid.
    Services list(const ContextRecord& context) const;

private:
    mutable std::mutex mutex_;
    Services services_;
};

}  // namespace detail
}  // namespace project_metadata
}  // namespace cppmicroservices
