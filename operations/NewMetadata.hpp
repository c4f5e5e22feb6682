/// Where and in which kind of store new metadata is made. Main thread only.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "project/metadata/MetadataManagerFactory.hpp"

namespace operations {

/// The kind of store that is named `name`; without a name, the one for new projects.
/// @throws OperationError if there is none
std::shared_ptr<project::metadata::MetadataManagerFactory> chooseStore(const std::optional<std::string>& name);

/// Says to a store that is to make a project what only that kind of store has to know.
/// @param options each as "name=value"
/// @throws OperationError if the store takes no such option
void setOptions(project::metadata::MetadataManager& store, const std::vector<std::string>& options);

/// Sees to it that new metadata goes into the folder `name`, relative to the root folder; without a name, into the one
/// that the settings name. Called before any store is made.
/// @throws OperationError if a project there would not be found again
void chooseFolder(const std::optional<std::string>& name);

}  // namespace operations
