// References to services, their registrations, and interface ids.
#include <cxxabi.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

#include "cppmicroservices/ServiceInterface.h"
#include "embedded/cppmicroservices/src/FrameworkCore.hpp"

namespace cppmicroservices {
inline namespace project_metadata {

using detail::Access;

std::string detail::GetDemangledName(const std::type_info& type) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status),
                                                           &std::free);
    return name ? name.get() : std::string();
}

ServiceReferenceBase::operator bool() const {
    return record_ && record_->service();
}

ServiceReferenceBase& ServiceReferenceBase::operator=(std::nullptr_t) {
    *this = ServiceReferenceBase();
    return *this;
}

void ServiceReferenceBase::bindTo(const std::string& interfaceId) {
    if (IsConvertibleTo(interfaceId))
        interfaceId_ = interfaceId;
    else
        *this = nullptr;
}

Any ServiceReferenceBase::GetProperty(const std::string& key) const {
    if (!record_)
        return {};
    const auto found = record_->properties.find(key);
    return found == record_->properties.end() ? Any() : found->second;
}

Bundle ServiceReferenceBase::GetBundle() const {
    if (!*this)
        return {};
    auto core = record_->owner->core.lock();
    auto bundle = record_->owner->bundle.lock();
    return core && bundle ? Access::bundle(std::move(bundle), std::move(core)) : Bundle();
}

bool ServiceReferenceBase::IsConvertibleTo(const std::string& interfaceId) const {
    return record_ && std::find(record_->interfaceIds.begin(), record_->interfaceIds.end(), interfaceId) !=
                          record_->interfaceIds.end();
}

bool ServiceReferenceBase::operator<(const ServiceReferenceBase& other) const {
    if (!record_ || !other.record_)
        return !record_ && other.record_;
    return detail::comesFirst(*other.record_, *record_);
}

ServiceReferenceBase ServiceRegistrationBase::GetReference(const std::string& interfaceId) const {
    if (!record_)
        throw std::logic_error("ServiceRegistrationBase object invalid");
    auto reference = Access::reference(record_, interfaceId);
    if (!reference)
        throw std::logic_error("Service is unregistered");
    return reference;
}

void ServiceRegistrationBase::Unregister() {
    if (!record_)
        throw std::logic_error("ServiceRegistrationBase object invalid");
    const auto object = record_->release();
    if (!object)
        throw std::logic_error("Service is unregistered");
    if (const auto core = record_->owner->core.lock())
        core->services().remove(record_);
}

}  // namespace project_metadata
}  // namespace cppmicroservices
