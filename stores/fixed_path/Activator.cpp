// The plug-in "fixedPath": a folder of small files, one for each path.

#include <algorithm>
#include <memory>

#include <cppmicroservices/BundleActivator.h>
#include <cppmicroservices/BundleContext.h>

#include "project/metadata/FileUtilities.hpp"
#include "store_support/StoreFactory.hpp"
#include "stores/fixed_path/FixedPathManager.hpp"
#include "stores/fixed_path/NodeFileName.hpp"

namespace stores::fixed_path {

using store_support::JobRunner;
using store_support::StoreFactory;
using store_support::StoreKind;

namespace {

class Activator : public cppmicroservices::BundleActivator {
public:
    void Start(cppmicroservices::BundleContext context) override {
        const StoreKind kind{fixedPathName, u"a folder of small files, one for each path, made for version control",
                             [](const host::Path& folder, JobRunner runJob) {
                                 return std::make_unique<FixedPathManager>(folder, std::move(runJob));
                             },
                             [](const host::Path& folder) {
                                 const auto files = project::metadata::listChildFiles(folder);
                                 return std::any_of(files.begin(), files.end(), isNodeFile);
                             }};
        context.RegisterService<project::metadata::MetadataManagerFactory>(
            std::make_shared<StoreFactory>(kind, context));
    }

    void Stop(cppmicroservices::BundleContext /*context*/) override {}
};

}  // namespace

}  // namespace stores::fixed_path

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(stores::fixed_path::Activator)
