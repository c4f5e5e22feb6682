#include "project/metadata/SingleFileExport.hpp"

#include <memory>

#include "host/FileSystem.hpp"
#include "host/TempDirGuard.hpp"
#include "project/metadata/CoreMetadataHandler.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataCopy.hpp"
#include "project/metadata/MetadataErrors.hpp"

namespace project::metadata {

namespace {

const char16_t* const singleFileStore = u"monolithic";

/// The name that this store gives to the root node of its file.
const char16_t* const singleFileRootName = u"Project";

}  // namespace

void writeMetadataToSingleFile(const host::Path& from, const host::Path& to) {
    const host::TempDirGuard scratch(host::FileSystem::temp_directory_name().text(), u"", u"");
    const host::Path scratchRoot = host::Path(scratch.getDirectoryName()).native();
    const host::Path scratchFolder = scratchRoot / u"resources" / u"project";
    const host::Path scratchFile = scratchFolder / u"Project.xml";

    const std::shared_ptr<MetadataManagerFactory> factory = getNamedFactory(singleFileStore);
    // A core file that is there decides where the store keeps its own, not the user's settings for new projects.
    CoreMetadataHandler(scratchFolder, singleFileStore, singleFileRootName).createCoreMetadata();
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
