// The plug-in "postgresql": all metadata on a server.

#include "store_support/StoreActivator.hpp"
#include "stores/postgresql/PostgresqlManager.hpp"

namespace stores::postgresql {

StoreKind describe() {
    return {postgresqlName, u"everything on a PostgreSQL server, made for teams on many machines",
            openStore<PostgresqlManager>};
}

}  // namespace stores::postgresql

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(store_support::StoreActivator<stores::postgresql::describe>)
