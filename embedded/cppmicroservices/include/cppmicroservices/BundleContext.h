// A bundle's way to the framework: it installs bundles, registers services and finds them.
//
// A context is valid from the start of its bundle to its stop. Afterwards, and on a default-constructed one, every
// operation but the comparisons throws IllegalStateException (a std::runtime_error) "The bundle context is no
// longer valid".
//
// Threads: a context is a handle. One handle is used by one thread at a time; handles of the same context may be used
// by several, also while the bundle stops.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cppmicroservices/GlobalConfig.h"
#include "cppmicroservices/IllegalStateException.h"
#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/ServiceProperties.h"
#include "cppmicroservices/ServiceReference.h"
#include "cppmicroservices/ServiceRegistration.h"

namespace cppmicroservices {
inline namespace project_metadata {

class Bundle;

template <class S>
class ServiceObjects;

namespace detail {
struct Access;
struct ContextRecord;
}  // namespace detail

class US_Framework_EXPORT BundleContext {
public:
    /// An invalid context.
    BundleContext() = default;

    /// Whether the context is valid.
    explicit operator bool() const;

    /// Invalid contexts are equal.
    bool operator==(const BundleContext& other) const;
    bool operator!=(const BundleContext& other) const { return !(*this == other); }

    /// The bundle whose context this is.
    Bundle GetBundle() const;
    /// The bundle with that id; an invalid one when there is none.
    Bundle GetBundle(long id) const;
    /// The bundle installed from exactly that location, or none.
    std::vector<Bundle> GetBundles(const std::string& location) const;
    /// All bundles, the framework's own first, in the order of installation.
    std::vector<Bundle> GetBundles() const;

    /// Loads the shared object at the path `location` and installs the bundle in it; the bundle that is already
    /// installed from there is returned as it is. Throws std::runtime_error, with the path and the cause, for a path
    /// that is no loadable shared object, one that holds no bundle, and one whose symbolic name is taken.
    std::vector<Bundle> InstallBundles(const std::string& location);

    /// Registers one service object under all interfaces in `service`; the registry shares its ownership until the
    /// service is unregistered, by the registration or when this bundle stops. Throws std::invalid_argument for an
    /// empty map, an empty interface id, a null object and a SERVICE_RANKING that is no int, and std::runtime_error
    /// for two keys that differ in case only.
    [[nodiscard]] ServiceRegistrationU RegisterService(const InterfaceMapConstPtr& service,
                                                       const ServiceProperties& properties = {});

    /// The same for an object that implements the given interfaces.
    template <class First, class... Others, class Implementation>
    ServiceRegistration<First, Others...> RegisterService(const std::shared_ptr<Implementation>& object,
                                                          const ServiceProperties& properties = {}) {
        const InterfaceMapConstPtr service = MakeInterfaceMap<First, Others...>(object);
        return RegisterService(service, properties);
    }

    /// The services registered under the interface, or under any for an empty id, whose properties match the filter
    /// (see LDAPFilter.h; empty for all): by falling ranking, then in the order of registration. Throws
    /// std::invalid_argument for a malformed filter.
    std::vector<ServiceReferenceU> GetServiceReferences(const std::string& interfaceId,
                                                        const std::string& filter = std::string());

    /// The same by type. Throws ServiceException when the interface's id is empty.
    template <class S>
    std::vector<ServiceReference<S>> GetServiceReferences(const std::string& filter = std::string()) {
        const auto references = GetServiceReferences(namedInterface<S>(), filter);
        return {references.begin(), references.end()};
    }

    /// The first of them, one that refers to nothing when there is none.
    ServiceReferenceU GetServiceReference(const std::string& interfaceId);

    template <class S>
    ServiceReference<S> GetServiceReference() {
        return GetServiceReference(namedInterface<S>());
    }

    /// The object of the service; null when the service goes at this moment. Throws std::invalid_argument for a
    /// reference that refers to nothing or to a service that is gone.
    std::shared_ptr<void> GetService(const ServiceReferenceBase& reference);
    InterfaceMapConstPtr GetService(const ServiceReferenceU& reference);

    template <class S>
    std::shared_ptr<S> GetService(const ServiceReference<S>& reference) {
        return std::static_pointer_cast<S>(GetService(static_cast<const ServiceReferenceBase&>(reference)));
    }

    /// For getting the object of the service more than once. Throws std::invalid_argument like GetService.
    /// Needs ServiceObjects.h.
    template <class S>
    ServiceObjects<S> GetServiceObjects(const ServiceReference<S>& reference) {
        if (!record_)
            throw IllegalStateException("The bundle context is no longer valid");
        return ServiceObjects<S>(*this, reference);
    }

private:
    friend struct detail::Access;

    template <class S>
    static const std::string& namedInterface() {
        const auto& interfaceId = us_service_interface_iid<S>();
        if (interfaceId.empty())
            throw ServiceException(
                "The service interface class has no CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE macro");
        return interfaceId;
    }

    std::shared_ptr<detail::ContextRecord> record_;
};

}  // namespace project_metadata
}  // namespace cppmicroservices
