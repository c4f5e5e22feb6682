// The plug-in "monolithic": all metadata in one file.

#include <memory>

#include "store_support/StoreActivator.hpp"
#include "stores/monolithic/MonolithicFormat.hpp"
#include "stores/monolithic/MonolithicManager.hpp"

namespace stores::monolithic {

StoreKind describe() {
    StoreKind kind{monolithicName, u"everything in one file, made for passing on", openStore<MonolithicManager>};
    kind.isAllInCoreFile = true;
    kind.fileFormat = std::make_shared<MonolithicFormat>();
    return kind;
}

}  // namespace stores::monolithic

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(store_support::StoreActivator<stores::monolithic::describe>)
