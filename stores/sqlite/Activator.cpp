// The plug-in "sqlite": all metadata in one database.

#include <memory>

#include <cppmicroservices/BundleActivator.h>
#include <cppmicroservices/BundleContext.h>

#include "store_support/StoreFactory.hpp"
#include "stores/sqlite/SqliteManager.hpp"

namespace stores::sqlite {

using store_support::JobRunner;
using store_support::StoreFactory;
using store_support::StoreKind;

namespace {

class Activator : public cppmicroservices::BundleActivator {
public:
    void Start(cppmicroservices::BundleContext context) override {
        const StoreKind kind{sqliteName, u"everything in one database, made for very large projects",
                             [](const host::Path& folder, JobRunner runJob) {
                                 return std::make_unique<SqliteManager>(folder, std::move(runJob));
                             }};
        context.RegisterService<project::metadata::MetadataManagerFactory>(
            std::make_shared<StoreFactory>(kind, context));
    }

    void Stop(cppmicroservices::BundleContext /*context*/) override {}
};

}  // namespace

}  // namespace stores::sqlite

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(stores::sqlite::Activator)
