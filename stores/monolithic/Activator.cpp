// The plug-in "monolithic": all metadata in one file.

#include <memory>

#include "store_support/StoreActivator.hpp"
#include "stores/monolithic/MonolithicFormat.hpp"
#include "stores/monolithic/MonolithicManager.hpp"

namespace stores::monolithic {

store_support::StoreKind describe() {
    store_support::StoreKind kind;
    kind.name = monolithicName;
    kind.description = u"everything in one file, made for passing on";
    kind.open = [](const host::Path& folder, store_support::JobRunner runJob) {
        return std::make_unique<MonolithicManager>(folder, std::move(runJob));
    };
    kind.isAllInCoreFile = true;
    kind.fileFormat = std::make_shared<MonolithicFormat>();
    return kind;
}

}  // namespace stores::monolithic

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(store_support::StoreActivator<stores::monolithic::describe>)
