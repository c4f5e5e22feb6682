// The handles of bundles and frameworks.
#include "cppmicroservices/Bundle.h"

#include <stdexcept>
#include <utility>

#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/Framework.h"
#include "cppmicroservices/FrameworkFactory.h"
#include "embedded/cppmicroservices/src/FrameworkCore.hpp"

namespace cppmicroservices {
inline namespace project_metadata {

using detail::Access;

detail::FrameworkCore& Bundle::core() const {
    if (!record_)
        throw std::invalid_argument("invalid bundle");
    return *core_;
}

Bundle::State Bundle::GetState() const {
    return core().stateOf(*record_);
}

BundleContext Bundle::GetBundleContext() const {
    return Access::handle<BundleContext>(core().contextOf(*record_));
}

long Bundle::GetBundleId() const {
    core();
    return record_->id;
}

std::string Bundle::GetLocation() const {
    core();
    return record_->location;
}

std::string Bundle::GetSymbolicName() const {
    core();
    return record_->symbolicName;
}

void Bundle::Start() {
    if (record_ == core().systemBundle())
        core_->startFramework();
    else
        core_->start(record_);
}

void Bundle::Stop() {
    if (record_ == core().systemBundle())
        core_->stopFramework();
    else
        core_->stop(record_);
}

void Bundle::Uninstall() {
    core().uninstall(record_);
}

Framework::Framework(Bundle bundle) : Bundle(std::move(bundle)) {
    if (GetBundleId() != 0)
        throw std::logic_error("Not a framework bundle");
}

void Framework::Init() {
    core().init();
}

FrameworkEvent Framework::WaitForStop(const std::chrono::milliseconds& timeout) {
    return {core().waitForStop(timeout), *this};
}

Framework FrameworkFactory::NewFramework() {
    auto core = std::make_shared<detail::FrameworkCore>();
    return Framework(Access::bundle(core->systemBundle(), core));
}

}  // namespace project_metadata
}  // namespace cppmicroservices
