// The plug-in "monolithic": all metadata in one file.

#include <memory>

#include <cppmicroservices/BundleActivator.h>
#include <cppmicroservices/BundleContext.h>

#include "store_support/StoreFactory.hpp"
#include "stores/monolithic/MonolithicManager.hpp"

namespace stores::monolithic {

using store_support::JobRunner;
using store_support::StoreFactory;
using store_support::StoreKind;

namespace {

class Activator : public cppmicroservices::BundleActivator {
public:
    void Start(cppmicroservices::BundleContext context) override {
        const StoreKind kind{monolithicName, u"everything in one file, made for passing on",
                             [](const host::Path& folder, JobRunner runJob) {
                                 return std::make_unique<MonolithicManager>(folder, std::move(runJob));
                             },
                             nullptr, true};
        context.RegisterService<project::metadata::MetadataManagerFactory>(
            std::make_shared<StoreFactory>(kind, context));
    }

    void Stop(cppmicroservices::BundleContext /*context*/) override {}
};

}  // namespace

}  // namespace stores::monolithic

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(stores::monolithic::Activator)
