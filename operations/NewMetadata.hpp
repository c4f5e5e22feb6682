/// Where and in which kind of store new metadata is made. Main thread only.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "operations/Library.hpp"
#include "operations/SettingsOverride.hpp"
#include "project/metadata/MetadataManagerFactory.hpp"

namespace operations {

/// The kind of store that is named `name`; without a name, the one for new projects.
/// @throws OperationError if there is none
std::shared_ptr<pm::MetadataManagerFactory> chooseStore(const std::optional<std::string>& name);

/// Says to a store that is to make a project what only that kind of store has to know.
/// @param options each as "name=value"
/// @throws OperationError if the store takes no such option
void setOptions(pm::MetadataManager& store, const std::vector<std::string>& options);

/// @param name a folder for new metadata, relative to the root folder; without a name, the one that the settings name
/// @throws OperationError if a project there would not be found again
void requireFolder(const std::optional<std::string>& name);

/// As `requireFolder`; and sees to it that new metadata goes there as long as the answer lives, which is to be made
/// before the store and to go after it.
std::unique_ptr<const SettingsOverride> chooseFolder(const std::optional<std::string>& name);

}  // namespace operations
