// A bundle that registers a service and leaves it to the framework to unregister it. Under the name "tests_failing" it
// fails afterwards: at every other start, and at every stop.
#include <memory>
#include <stdexcept>
#include <thread>

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/BundleActivator.h"
#include "cppmicroservices/GetBundleContext.h"
#include "tests/services/Greeter.hpp"

namespace {

std::string ownName() {
    const auto context = cppmicroservices::GetBundleContext();
    return context ? context.GetBundle().GetSymbolicName() : "nowhere";
}

struct BundledGreeter final : tests::Greeter {
    std::string greet() const override { return "hello from " + ownName(); }
};

struct Activator final : cppmicroservices::BundleActivator {
    void Start(cppmicroservices::BundleContext context) override {
        registration_ = context.RegisterService<tests::Greeter>(std::make_shared<BundledGreeter>());
        std::this_thread::yield();  // so that another thread may try to start it too
        static int starts = 0;
        if (ownName() == "tests_failing" && ++starts % 2 == 1)
            throw std::runtime_error("the licence has expired");
    }

    void Stop(cppmicroservices::BundleContext /*context*/) override {
        if (ownName() == "tests_failing")
            throw std::runtime_error("the licence server does not let go");
    }

private:
    cppmicroservices::ServiceRegistration<tests::Greeter> registration_;
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(Activator)
