// The plug-in "sqlite": all metadata in one database.

#include "store_support/StoreActivator.hpp"
#include "stores/sqlite/SqliteManager.hpp"

namespace stores::sqlite {

StoreKind describe() {
    return {sqliteName, u"everything in one database, made for very large projects", openStore<SqliteManager>,
            holdsDatabase};
}

}  // namespace stores::sqlite

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(store_support::StoreActivator<stores::sqlite::describe>)
