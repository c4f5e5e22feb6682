#include "cli/NewMetadata.hpp"

#include <algorithm>
#include <vector>

#include "cli/Errors.hpp"
#include "cli/Project.hpp"
#include "cli/SettingsOverride.hpp"
#include "host/Text.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataRoots.hpp"

namespace cli {

namespace pm = project::metadata;

namespace {

/// In any other folder a project could be made, but not found again.
/// @param origin where the name comes from, for the error sentence
void requireFolderIn(const std::vector<std::u16string>& allowed, const std::u16string& name, Status status,
                     const std::string& origin) {
    if (std::find(allowed.begin(), allowed.end(), name) != allowed.end())
        return;
    std::string choices;
    for (const std::u16string& choice : allowed)
        choices += (choices.empty() ? "" : ", ") + host::toUtf8(choice);
    throw CommandError(status, "Metadata cannot be kept in the folder \"" + host::toUtf8(name) + "\" that " + origin +
                                   " names; it can be in: " + choices);
}

}  // namespace

std::shared_ptr<pm::MetadataManagerFactory> chooseStore(const std::optional<std::string>& name) {
    if (auto factory = name ? pm::getNamedFactory(host::fromUtf8(*name)) : pm::getDefaultFactory())
        return factory;
    if (name)
        throw CommandError(Status::usage, "There is no store \"" + *name + "\"; there are: " + listStoreNames());
    throw CommandError(Status::failure, "There is no default store; there are: " + listStoreNames());
}

void chooseFolder(const std::optional<std::string>& name) {
    if (name) {
        const std::u16string folder = host::fromUtf8(*name);
        requireFolderIn(pm::getSelectableRoots(), folder, Status::usage, "--folder");
        overrideSetting("korvex.project.creation", "DefaultMetadataRoot", folder);
    } else {
        requireFolderIn(pm::getSupportedRoots(), pm::getRootFromSettings(), Status::failure,
                        "the setting DefaultMetadataRoot");
    }
}

}  // namespace cli
