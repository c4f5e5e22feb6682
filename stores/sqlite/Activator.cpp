// The plug-in "sqlite": all metadata in one database.

#include <memory>

#include "store_support/StoreActivator.hpp"
#include "stores/sqlite/SqliteManager.hpp"

namespace stores::sqlite {

store_support::StoreKind describe() {
    store_support::StoreKind kind;
    kind.name = sqliteName;
    kind.description = u"everything in one database, made for very large projects";
    kind.open = [](const host::Path& folder, store_support::JobRunner runJob) {
        return std::make_unique<SqliteManager>(folder, std::move(runJob));
    };
    kind.hasContentIn = holdsDatabase;
    return kind;
}

}  // namespace stores::sqlite

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(store_support::StoreActivator<stores::sqlite::describe>)
