// The handle of a bundle's context, and which context belongs to which bundle's code.
#include "cppmicroservices/BundleContext.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <stdexcept>

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/GetBundleContext.h"
#include "cppmicroservices/LDAPFilter.h"
#include "cppmicroservices/ServiceObjects.h"
#include "embedded/cppmicroservices/src/FrameworkCore.hpp"

namespace cppmicroservices {
inline namespace project_metadata {

using detail::Access;

namespace {

struct Owner {
    std::shared_ptr<detail::FrameworkCore> core;
    std::shared_ptr<detail::BundleRecord> bundle;
};

Owner requireValid(const BundleContext& context) {
    if (context) {
        const auto& record = Access::record(context);
        if (Owner owner{record->core.lock(), record->bundle.lock()}; owner.core && owner.bundle)
            return owner;
    }
    throw IllegalStateException("The bundle context is no longer valid");
}

InterfaceMapConstPtr requireService(const BundleContext& context, const ServiceReferenceBase& reference) {
    if (!reference)
        throw std::invalid_argument("Default constructed ServiceReference is not a valid input to GetService()");
    requireValid(context);
    return Access::record(reference)->service();
}

std::shared_ptr<void> objectOf(const InterfaceMapConstPtr& service, const std::string& interfaceId) {
    if (!service)
        return nullptr;
    const auto found = interfaceId.empty() ? service->begin() : service->find(interfaceId);
    return found == service->end() ? nullptr : found->second;
}

}  // namespace

BundleContext::operator bool() const {
    return record_ && record_->valid;
}

bool BundleContext::operator==(const BundleContext& other) const {
    return *this ? record_ == other.record_ : !other;
}

Bundle BundleContext::GetBundle() const {
    const auto owner = requireValid(*this);
    return Access::bundle(owner.bundle, owner.core);
}

Bundle BundleContext::GetBundle(long id) const {
    const auto all = GetBundles();
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const Bundle& bundle) { return bundle.GetBundleId() == id; });
    return found == all.end() ? Bundle() : *found;
}

std::vector<Bundle> BundleContext::GetBundles(const std::string& location) const {
    auto all = GetBundles();
    const auto isElsewhere = [&](const Bundle& bundle) { return bundle.GetLocation() != location; };
    all.erase(std::remove_if(all.begin(), all.end(), isElsewhere), all.end());
    return all;
}

std::vector<Bundle> BundleContext::GetBundles() const {
    const auto owner = requireValid(*this);
    std::vector<Bundle> all;
    for (const auto& record : owner.core->bundles())
        all.push_back(Access::bundle(record, owner.core));
    return all;
}

std::vector<Bundle> BundleContext::InstallBundles(const std::string& location) {
    const auto owner = requireValid(*this);
    return {Access::bundle(owner.core->install(*record_, location), owner.core)};
}

ServiceRegistrationU BundleContext::RegisterService(const InterfaceMapConstPtr& service,
                                                    const ServiceProperties& properties) {
    const auto owner = requireValid(*this);
    auto record = std::make_shared<detail::ServiceRecord>(record_, service, properties);
    owner.core->services().add(record);
    return Access::handle<ServiceRegistrationU>(std::move(record));
}

std::vector<ServiceReferenceU> BundleContext::GetServiceReferences(const std::string& interfaceId,
                                                                   const std::string& filter) {
    const auto owner = requireValid(*this);
    const LDAPFilter condition = filter.empty() ? LDAPFilter() : LDAPFilter(filter);
    std::vector<ServiceReferenceU> references;
    for (const auto& record : owner.core->services().list(*record_)) {
        auto reference = Access::reference(record, interfaceId);
        if (reference && (interfaceId.empty() || reference.IsConvertibleTo(interfaceId)) &&
            (!condition || condition.Match(reference)))
            references.push_back(std::move(reference));
    }
    return references;
}

ServiceReferenceU BundleContext::GetServiceReference(const std::string& interfaceId) {
    const auto references = GetServiceReferences(interfaceId);
    return references.empty() ? ServiceReferenceU() : references.front();
}

std::shared_ptr<void> BundleContext::GetService(const ServiceReferenceBase& reference) {
    return objectOf(requireService(*this, reference), reference.GetInterfaceId());
}

InterfaceMapConstPtr BundleContext::GetService(const ServiceReferenceU& reference) {
    return requireService(*this, reference);
}

ServiceObjectsBase::ServiceObjectsBase(const BundleContext& context, const ServiceReferenceBase& reference)
    : context_(context), reference_(reference) {
    if (!reference)
        throw std::invalid_argument("The service reference is invalid");
}

std::shared_ptr<void> ServiceObjectsBase::GetService() const {
    if (!reference_)
        return nullptr;
    requireValid(context_);
    return objectOf(Access::record(reference_)->service(), reference_.GetInterfaceId());
}

namespace detail {
namespace {

struct Contexts {
    std::mutex mutex;
    std::map<const BundleDescriptor*, std::weak_ptr<ContextRecord>> of;
};

Contexts& contexts() {
    static Contexts& all = *new Contexts;
    return all;
}

}  // namespace

void publishContext(const BundleDescriptor& bundle, const std::shared_ptr<ContextRecord>& context) {
    const std::lock_guard lock(contexts().mutex);
    contexts().of[&bundle] = context;
}

BundleContext contextOf(const BundleDescriptor& bundle) {
    const std::lock_guard lock(contexts().mutex);
    const auto found = contexts().of.find(&bundle);
    return found == contexts().of.end() ? BundleContext() : Access::handle<BundleContext>(found->second.lock());
}

}  // namespace detail
}  // namespace project_metadata
}  // namespace cppmicroservices
