#include "operations/NewMetadata.hpp"

#include <algorithm>

#include "operations/Errors.hpp"
#include "operations/Project.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataOptions.hpp"
#include "project/metadata/MetadataRoots.hpp"

namespace operations {

namespace {

/// In any other folder a project could be made, but not found again.
/// @param origin where the name comes from, for the error sentence
void requireFolderIn(const std::vector<std::u16string>& allowed, const std::u16string& name, ErrorKind kind,
                     const std::string& origin) {
    if (std::find(allowed.begin(), allowed.end(), name) != allowed.end())
        return;
    std::string choices;
    for (const std::u16string& choice : allowed)
        choices += (choices.empty() ? "" : ", ") + host::toUtf8(choice);
    throw OperationError(kind, "Metadata cannot be kept in the folder \"" + host::toUtf8(name) + '"' + origin +
                                   "; it can be in: " + choices);
}

}  // namespace

std::shared_ptr<pm::MetadataManagerFactory> chooseStore(const std::optional<std::string>& name) {
    if (auto factory = name ? pm::getNamedFactory(host::fromUtf8(*name)) : pm::getDefaultFactory())
        return factory;
    if (name)
        throw OperationError(ErrorKind::usage, "There is no store \"" + *name + "\"; there are: " + listStoreNames());
    throw OperationError(ErrorKind::failure, "There is no default store; there are: " + listStoreNames());
}

void setOptions(pm::MetadataManager& store, const std::vector<std::string>& options) {
    auto* const taker = dynamic_cast<pm::MetadataOptions*>(&store);
    const auto known = taker ? taker->getOptions() : std::vector<pm::MetadataOption>();
    for (const std::string& option : options) {
        const std::size_t end = option.find('=');
        const std::u16string name = host::fromUtf8(option.substr(0, end));
        const bool isKnown =
            std::any_of(known.begin(), known.end(), [&](const pm::MetadataOption& each) { return each.name == name; });
        if (isKnown && end != option.npos) {
            taker->setOption(name, host::fromUtf8(option.substr(end + 1)));
            continue;
        }
        std::string choices;
        for (const pm::MetadataOption& each : known)
            choices += (choices.empty() ? "; it takes " : ", ") + host::toUtf8(each.name) + "=... (" +
                       host::toUtf8(each.description) + ')';
        throw OperationError(ErrorKind::usage, "The store takes no option \"" + option + '"' + choices);
    }
}

void requireFolder(const std::optional<std::string>& name) {
    if (name) {
        requireFolderIn(pm::getSelectableRoots(), host::fromUtf8(*name), ErrorKind::usage, "");
    } else {
        requireFolderIn(pm::getSupportedRoots(), pm::getRootFromSettings(), ErrorKind::failure,
                        " that the setting DefaultMetadataRoot names");
    }
}

std::unique_ptr<const SettingsOverride> chooseFolder(const std::optional<std::string>& name) {
    requireFolder(name);
    return name ? std::make_unique<SettingsOverride>("korvex.project.creation", "DefaultMetadataRoot",
                                                     host::fromUtf8(*name))
                : nullptr;
}

}  // namespace operations
