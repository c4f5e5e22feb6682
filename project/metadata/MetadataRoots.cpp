#include "project/metadata/MetadataRoots.hpp"

#include "host/SettingsService.hpp"

namespace project::metadata {

namespace {

using Names = std::vector<std::u16string>;

const Names& selectableRoots = *new Names{u"resources/project", u".TolvaneProject", u"_TolvaneProject"};

const Names& supportedRoots = [&roots = *new Names(selectableRoots)]() -> const Names& {
    roots.insert(roots.end(), {u"resources/.Project", u"resources/_Project"});
    return roots;
}();

}  // namespace

const std::vector<std::u16string>& getSelectableRoots() {
    return selectableRoots;
}

const std::vector<std::u16string>& getSupportedRoots() {
    return supportedRoots;
}

std::u16string getRootFromSettings() {
    const auto settings = host::SettingsService::getSettingsRoot();
    if (!settings)
        return u"resources/project";
    return settings->getGroup("korvex.project.creation")->getText("DefaultMetadataRoot", "");
}

}  // namespace project::metadata
