/// The names that a project's metadata folder may have, each relative to the project's root folder.
///
/// The lists never change and may be read from any thread.
#pragma once

#include <string>
#include <vector>

#include "project/Export.hpp"

namespace project::metadata {

/// The names that a new project may be given, in order of preference.
PROJECT_METADATA_EXPORT const std::vector<std::u16string>& getSelectableRoots();

/// The names under which metadata is looked for, in this order: the selectable ones, then those of older projects.
PROJECT_METADATA_EXPORT const std::vector<std::u16string>& getSupportedRoots();

/// The name that a new project gets: the user's setting "DefaultMetadataRoot" in "korvex.project.creation", as it is,
/// or "resources/project" while there are no settings.
/// @throws whatever the settings throw
PROJECT_METADATA_EXPORT std::u16string getRootFromSettings();

}  // namespace project::metadata
