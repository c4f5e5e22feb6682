// A bundle that registers a service and leaves it to the framework to unregister it.
#include <memory>
#include <string>

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/BundleActivator.h"
#include "cppmicroservices/GetBundleContext.h"
#include "tests/services/Greeter.hpp"

namespace {

struct BundledGreeter final : tests::Greeter {
    std::string greet() const override { return "hello from a bundle"; }

    std::string bundleName() const override {
        const auto context = cppmicroservices::GetBundleContext();
        return context ? context.GetBundle().GetSymbolicName() : std::string();
    }
};

struct Activator final : cppmicroservices::BundleActivator {
    void Start(cppmicroservices::BundleContext context) override {
        registration_ = context.RegisterService<tests::Greeter>(std::make_shared<BundledGreeter>());
    }

    void Stop(cppmicroservices::BundleContext /*context*/) override {}

private:
    cppmicroservices::ServiceRegistration<tests::Greeter> registration_;
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(Activator)
