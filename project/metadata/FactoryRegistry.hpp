/// Finding the kinds of metadata stores, and the store of a project.
///
/// The first call in a process installs and starts the plug-ins in the folder "bin/tuxa64/ProjectMetadataProvider" of
/// the host's installation. Until that has succeeded, each call tries again; while there is no service framework, there
/// are no factories. The plug-ins are not loaded again into a framework that a host sets after that: it sets its own
/// before the first call, or installs (`host::ServiceFramework::installBundles`) and starts them there itself.
///
/// A plug-in must not call these functions while it starts. Every function may be called from any thread, and every one
/// passes on the errors of the service framework and of the plug-ins.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/Path.hpp"
#include "project/Export.hpp"
#include "project/metadata/MetadataManagerFactory.hpp"

namespace project::metadata {

/// All registered factories in the order of the service framework, hidden ones included, none of them null.
PROJECT_METADATA_EXPORT std::vector<std::shared_ptr<MetadataManagerFactory>> getRegisteredFactories();

/// The first factory named exactly `name`; null if there is none.
PROJECT_METADATA_EXPORT std::shared_ptr<MetadataManagerFactory> getNamedFactory(const std::u16string& name);

/// The factory that the user's setting "DefaultMetadataManager" in "korvex.project.creation" names, otherwise
/// "fixedPath"; null if there is neither.
/// @throws whatever the settings throw
PROJECT_METADATA_EXPORT std::shared_ptr<MetadataManagerFactory> getDefaultFactory();

/// A store for the project with the root folder `root`, made by the first factory that can manage it; null if none can.
PROJECT_METADATA_EXPORT std::unique_ptr<MetadataManager> getMetadataManagerFor(const host::Path& root);

}  // namespace project::metadata
