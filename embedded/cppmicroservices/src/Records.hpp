// What stands behind the handles of the public headers.
//
// Handles share the ownership of records. Records refer to each other weakly, so a handle that somebody forgot keeps
// no framework alive, except that of a Bundle, which is meant to.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/ServiceReference.h"
#include "cppmicroservices/ServiceRegistration.h"
#include "embedded/cppmicroservices/src/SharedObject.hpp"

namespace cppmicroservices {
inline namespace project_metadata {
namespace detail {

class FrameworkCore;

/// One run of a bundle, from its start to its stop.
struct ContextRecord {
    ContextRecord(std::weak_ptr<FrameworkCore> itsCore, const std::shared_ptr<BundleRecord>& itsBundle)
        : core(std::move(itsCore)), bundle(itsBundle) {}

    const std::weak_ptr<FrameworkCore> core;
    const std::weak_ptr<BundleRecord> bundle;
    /// Becomes false under the mutex of the service registry, so that no service is registered afterwards.
    std::atomic<bool> valid{true};
};

struct BundleRecord {
    BundleRecord(long itsId, std::string itsLocation, std::string itsName, SharedObject itsObject)
        : id(itsId), location(std::move(itsLocation)), symbolicName(std::move(itsName)), object(itsObject) {}

    const long id;
    const std::string location;
    const std::string symbolicName;
    const SharedObject object;

    // The rest is guarded by the mutex of FrameworkCore.
    Bundle::State state = Bundle::STATE_INSTALLED;
    /// The thread that starts or stops the bundle at the moment.
    std::thread::id worker;
    std::shared_ptr<ContextRecord> context;
    std::unique_ptr<BundleActivator> activator;
};

struct LessIgnoringCase {
    bool operator()(const std::string& left, const std::string& right) const;
};

using PropertyMap = std::map<std::string, Any, LessIgnoringCase>;

/// A registration. All but the service object is there to be read after the service is gone.
struct ServiceRecord {
    ServiceRecord(std::shared_ptr<ContextRecord> registeredBy, InterfaceMapConstPtr service,
                  const ServiceProperties& given);

    /// The service object; null once it has been released.
    InterfaceMapConstPtr service() const;

    /// Makes the service unavailable. The first caller gets the object, the others null.
    InterfaceMapConstPtr release();

    const std::shared_ptr<ContextRecord> owner;
    const long id;
    PropertyMap properties;
    int ranking = 0;
    std::vector<std::string> interfaceIds;

private:
    mutable std::mutex mutex_;
    InterfaceMapConstPtr service_;
};

/// The order in which services are listed: by falling ranking, then in the order of registration.
bool comesFirst(const ServiceRecord& left, const ServiceRecord& right);

/// The way from handles to records and back, for the framework only.
struct Access {
    template <class Handle>
    static const auto& record(const Handle& handle) {
        return handle.record_;
    }

    static Bundle bundle(std::shared_ptr<BundleRecord> record, std::shared_ptr<FrameworkCore> core) {
        auto result = handle<Bundle>(std::move(record));
        result.core_ = std::move(core);
        return result;
    }

    template <class Handle, class Record>
    static Handle handle(std::shared_ptr<Record> record) {
        Handle result;
        result.record_ = std::move(record);
        return result;
    }

    static ServiceReferenceU reference(std::shared_ptr<ServiceRecord> record, const std::string& interfaceId) {
        auto result = handle<ServiceReferenceU>(std::move(record));
        result.interfaceId_ = interfaceId;
        return result;
    }
};

}  // namespace detail
}  // namespace project_metadata
}  // namespace cppmicroservices
