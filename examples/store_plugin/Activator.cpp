// Offers the store "plain" to the library.

#include <memory>

#include <cppmicroservices/BundleActivator.h>
#include <cppmicroservices/BundleContext.h>

#include "PlainStore.hpp"

namespace plain {

class Activator : public cppmicroservices::BundleActivator {
public:
    void Start(cppmicroservices::BundleContext context) override {
        context.RegisterService<project::metadata::MetadataManagerFactory>(std::make_shared<PlainFactory>(context));
    }

    void Stop(cppmicroservices::BundleContext /*context*/) override {}
};

}  // namespace plain

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(plain::Activator)
