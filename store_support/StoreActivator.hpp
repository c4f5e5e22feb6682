/// The activator of a plug-in that offers one kind of store.
#pragma once

#include <cppmicroservices/BundleActivator.h>
#include <cppmicroservices/BundleContext.h>

#include "store_support/StoreFactory.hpp"

namespace store_support {

/// Registers the factory of the kind of store that `describe` tells. A plug-in exports it with
/// `CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(store_support::StoreActivator<describe>)`.
template <StoreKind (*describe)()>
class StoreActivator : public cppmicroservices::BundleActivator {
public:
    void Start(cppmicroservices::BundleContext context) override {
        context.RegisterService<project::metadata::MetadataManagerFactory>(makeStoreFactory(describe(), context));
    }

    /// The framework takes the service back by itself.
    void Stop(cppmicroservices::BundleContext /*context*/) override {}
};

}  // namespace store_support
