// The plug-in "postgresql": all metadata on a server.

#include <memory>

#include "store_support/StoreActivator.hpp"
#include "stores/postgresql/PostgresqlManager.hpp"

namespace stores::postgresql {

store_support::StoreKind describe() {
    store_support::StoreKind kind;
    kind.name = postgresqlName;
    kind.description = u"everything on a PostgreSQL server, made for teams on many machines";
    kind.open = [](const host::Path& folder, store_support::JobRunner runJob) {
        return std::make_unique<PostgresqlManager>(folder, std::move(runJob));
    };
    return kind;
}

}  // namespace stores::postgresql

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(store_support::StoreActivator<stores::postgresql::describe>)
