// The plug-in "fixedPath": a folder of small files, one for each path.

#include <memory>

#include <cppmicroservices/BundleActivator.h>
#include <cppmicroservices/BundleContext.h>

#include "stores/common/StoreFactory.hpp"
#include "stores/fixed_path/FixedPathManager.hpp"

namespace stores::fixed_path {

namespace {

class Activator : public cppmicroservices::BundleActivator {
public:
    void Start(cppmicroservices::BundleContext context) override {
        const StoreKind kind{fixedPathName, u"a folder of small files, one for each path, made for version control",
                             [](const host::Path& folder, JobRunner runJob) {
                                 return std::make_unique<FixedPathManager>(folder, std::move(runJob));
                             }};
        context.RegisterService<project::metadata::MetadataManagerFactory>(
            std::make_shared<StoreFactory>(kind, context));
    }

    void Stop(cppmicroservices::BundleContext /*context*/) override {}
};

}  // namespace

}  // namespace stores::fixed_path

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(stores::fixed_path::Activator)
