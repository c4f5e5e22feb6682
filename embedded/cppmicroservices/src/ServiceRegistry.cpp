// Registrations: what is checked when they are made, and the order in which they are listed.
#include "embedded/cppmicroservices/src/ServiceRegistry.hpp"

#include <strings.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "cppmicroservices/Constants.h"

namespace cppmicroservices {
inline namespace project_metadata {
namespace detail {
namespace {

void requireValid(const ContextRecord& context) {
    if (!context.valid)
        throw IllegalStateException("The bundle context is no longer valid");
}

long nextServiceId() {
    static std::atomic<long> lastId{0};
    return ++lastId;
}

std::vector<std::string> interfaceIdsOf(const InterfaceMapConstPtr& service) {
    if (!service || service->empty())
        throw std::invalid_argument("Can't register empty InterfaceMap as a service");
    std::vector<std::string> ids;
    for (const auto& [id, object] : *service) {
        if (id.empty() || !object)
            throw std::invalid_argument("Can't register as null class");
        ids.push_back(id);
    }
    return ids;
}

PropertyMap checkedProperties(const ServiceProperties& given) {
    PropertyMap properties;
    for (const auto& [key, value] : given) {
        if (!properties.emplace(key, value).second)
            throw std::runtime_error("Properties contain case variants of the key: " + key);
    }
    return properties;
}

int rankingOf(const PropertyMap& properties) {
    const auto found = properties.find(Constants::SERVICE_RANKING);
    if (found == properties.end())
        return 0;
    if (const auto* ranking = any_cast<int>(&found->second))
        return *ranking;
    throw std::invalid_argument("SERVICE_RANKING property has unexpected value type, it must be int");
}

}  // namespace

bool LessIgnoringCase::operator()(const std::string& left, const std::string& right) const {
    return strcasecmp(left.c_str(), right.c_str()) < 0;
}

ServiceRecord::ServiceRecord(std::shared_ptr<ContextRecord> registeredBy, InterfaceMapConstPtr service,
                             const ServiceProperties& given)
    : owner(std::move(registeredBy)),
      id(nextServiceId()),
      properties(checkedProperties(given)),
      ranking(rankingOf(properties)),
      interfaceIds(interfaceIdsOf(service)),
      service_(std::move(service)) {
    properties[Constants::OBJECTCLASS] = interfaceIds;
    properties[Constants::SERVICE_ID] = id;
    properties.emplace(Constants::SERVICE_SCOPE, Constants::SCOPE_SINGLETON);
}

InterfaceMapConstPtr ServiceRecord::service() const {
    const std::lock_guard lock(mutex_);
    return service_;
}

InterfaceMapConstPtr ServiceRecord::release() {
    const std::lock_guard lock(mutex_);
    return std::exchange(service_, nullptr);
}

bool comesFirst(const ServiceRecord& left, const ServiceRecord& right) {
    return left.ranking != right.ranking ? left.ranking > right.ranking : left.id < right.id;
}

void ServiceRegistry::add(const std::shared_ptr<ServiceRecord>& service) {
    const std::lock_guard lock(mutex_);
    requireValid(*service->owner);
    const auto place = std::upper_bound(services_.begin(), services_.end(), service,
                                        [](const auto& a, const auto& b) { return comesFirst(*a, *b); });
    services_.insert(place, service);
}

void ServiceRegistry::remove(const std::shared_ptr<ServiceRecord>& service) {
    const std::lock_guard lock(mutex_);
    services_.erase(std::remove(services_.begin(), services_.end(), service), services_.end());
}

void ServiceRegistry::retire(ContextRecord& context) {
    Services retired;
    {
        const std::lock_guard lock(mutex_);
        context.valid = false;
        const auto isOthers = [&](const auto& service) { return service->owner.get() != &context; };
        const auto first = std::stable_partition(services_.begin(), services_.end(), isOthers);
        retired.assign(first, services_.end());
        services_.erase(first, services_.end());
    }
    for (const auto& service : retired)
        service->release();
}

ServiceRegistry::Services ServiceRegistry::list(const ContextRecord& context) const {
    const std::lock_guard lock(mutex_);
    requireValid(context);
    return services_;
}

}  // namespace detail
}  // namespace project_metadata
}  // namespace cppmicroservices
