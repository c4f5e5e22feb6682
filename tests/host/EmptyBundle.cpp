/// A bundle that offers nothing.
#include "cppmicroservices/BundleActivator.h"

namespace {

struct Activator : cppmicroservices::BundleActivator {
    void Start(cppmicroservices::BundleContext /*context*/) override {}
    void Stop(cppmicroservices::BundleContext /*context*/) override {}
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(Activator)
