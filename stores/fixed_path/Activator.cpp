// The plug-in "fixedPath": a folder of small files, one for each path.

#include <algorithm>
#include <memory>

#include "project/metadata/FileUtilities.hpp"
#include "store_support/StoreActivator.hpp"
#include "stores/fixed_path/FixedPathFormat.hpp"
#include "stores/fixed_path/FixedPathManager.hpp"
#include "stores/fixed_path/NodeFileName.hpp"

namespace stores::fixed_path {

StoreKind describe() {
    StoreKind kind{fixedPathName, u"a folder of small files, one for each path, made for version control",
                   openStore<FixedPathManager>};
    kind.hasContentIn = [](const Path& folder) {
        const auto files = project::metadata::listChildFiles(folder);
        return std::any_of(files.begin(), files.end(), isNodeFile);
    };
    kind.fileFormat = std::make_shared<FixedPathFormat>();
    return kind;
}

}  // namespace stores::fixed_path

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(store_support::StoreActivator<stores::fixed_path::describe>)
