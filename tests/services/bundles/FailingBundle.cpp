// A bundle that registers a service and then fails: at once, or with FAILS_ON_STOP when it is stopped.
#include <memory>
#include <stdexcept>
#include <string>

#include "cppmicroservices/BundleActivator.h"
#include "tests/services/Greeter.hpp"

namespace {

struct HastyGreeter final : tests::Greeter {
    std::string greet() const override { return "hello, for now"; }
};

struct Activator final : cppmicroservices::BundleActivator {
    void Start(cppmicroservices::BundleContext context) override {
        registration_ = context.RegisterService<tests::Greeter>(std::make_shared<HastyGreeter>());
#ifndef FAILS_ON_STOP
        throw std::runtime_error("the licence has expired");
#endif
    }

    void Stop(cppmicroservices::BundleContext /*context*/) override {
        throw std::runtime_error("the licence server does not let go");
    }

private:
    cppmicroservices::ServiceRegistration<tests::Greeter> registration_;
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(Activator)
