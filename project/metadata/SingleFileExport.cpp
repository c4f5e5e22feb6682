#include "project/metadata/SingleFileExport.hpp"

#include <memory>

#include "host/FileSystem.hpp"
#include "host/TempDirGuard.hpp"
#include "project/metadata/CoreMetadataHandler.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataCopy.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"

namespace project::metadata {

namespace {

const char16_t* const singleFileStore = u"monolithic";

/// Sees to it that a store on `root` keeps its core file in `folder`, also when the user's settings name another
/// folder for new projects: an existing core file decides.
void pinMetadataFolder(const host::Path& root, const host::Path& folder) {
    if (ProjectMetadataLocation(root).getDirectory() != folder)
        CoreMetadataHandler(folder, singleFileStore, getDefaultMetadataNodeName()).createCoreMetadata();
}

}  // namespace

void writeMetadataToSingleFile(const host::Path& from, const host::Path& to) {
    const host::TempDirGuard scratch(host::FileSystem::temp_directory_name().text(), u"", u"");
    const host::Path scratchRoot = host::Path(scratch.getDirectoryName()).native();
    const host::Path scratchFolder = scratchRoot / u"resources" / u"project";
    const host::Path scratchFile = scratchFolder / u"Project.xml";

    const std::shared_ptr<MetadataManagerFactory> factory = getNamedFactory(singleFileStore);
    pinMetadataFolder(scratchRoot, scratchFolder);
    const std::unique_ptr<MetadataManager> destination = factory ? factory->createManager(scratchRoot) : nullptr;
    if (!destination)
        raise<MetadataWriteFailure>(to.text(), u"there is no metadata store named \"monolithic\"");
    const std::unique_ptr<MetadataManager> source = getMetadataManagerFor(from);
    if (!source)
        raise<MetadataReadFailure>(from.text(), u"no metadata store recognises the project in this folder");

    copyMetadata(*source, *destination);
    // The store has completed the file by now; the stores and the scratch folder are released in reverse order.
    host::FileSystem::copy_file(scratchFile, to, host::CopyOption::none);
}

}  // namespace project::metadata
