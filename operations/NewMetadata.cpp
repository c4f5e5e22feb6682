#include "operations/NewMetadata.hpp"

#include <algorithm>

#include "host/SettingsService.hpp"
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

/// The name of the store that the user wants for new projects; empty if he does not say.
std::u16string getWantedStore() {
    const auto settings = host::SettingsService::getSettingsRoot();
    return settings ? settings->getGroup("korvex.project.creation")->getText("DefaultMetadataManager", "")
                    : std::u16string();
}

}  // namespace

std::shared_ptr<pm::MetadataManagerFactory> chooseStore(const std::optional<std::string>& name) {
    // The library would take another one where the one that the settings name is missing.
    const std::u16string wanted = name ? host::fromUtf8(*name) : getWantedStore();
    if (auto factory = name || !wanted.empty() ? pm::getNamedFactory(wanted) : pm::getDefaultFactory())
        return factory;
    const std::string missing = wanted.empty() ? "default store" : "store \"" + host::toUtf8(wanted) + '"';
    throw OperationError(name ? ErrorKind::usage : ErrorKind::failure,
                         "There is no " + missing +
                             (name || wanted.empty() ? "" : " that the setting DefaultMetadataManager names") +
                             "; there are: " + listStoreNames());
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
