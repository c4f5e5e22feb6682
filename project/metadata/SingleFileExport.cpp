#include "project/metadata/SingleFileExport.hpp"

#include <array>
#include <memory>
#include <string>

#include "host/FileSystem.hpp"
#include "host/TempDirGuard.hpp"
#include "project/metadata/CoreMetadataHandler.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataCopy.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/RepeatableRead.hpp"
#include "project/metadata/WholeContentWrite.hpp"

namespace project::metadata {

namespace {

const char16_t* const singleFileStore = u"monolithic";

/// The name that this store gives to the root node of its file.
const char16_t* const singleFileRootName = u"Project";

/// The bytes of a small file, or the first ones of a large one; none if it cannot be read.
std::string readStart(const host::Path& file) {
    std::array<char, 256> bytes;
    host::InputFileStream stream(file.accessName(), std::ios::in | std::ios::binary);
    stream.read(bytes.data(), bytes.size());
    return {bytes.data(), static_cast<std::size_t>(stream.gcount())};
}

/// Why `getMetadataManagerFor` has found no store for the project in `root`.
std::u16string explainMissingSource(const host::Path& root) {
    for (const std::shared_ptr<MetadataManagerFactory>& factory : getRegisteredFactories()) {
        if (factory->canManage(root)) {
            return u"the metadata store named \"" + factory->getName() +
                   u"\" recognises the project, but could not be opened";
        }
    }
    return u"no metadata store recognises the project in this folder";
}

}  // namespace

void writeMetadataToSingleFile(const host::Path& from, const host::Path& to) {
    const host::TempDirGuard scratch(host::FileSystem::temp_directory_name().text(), u"", u"");
    const host::Path scratchRoot = host::Path(scratch.getDirectoryName()).native();
    const host::Path scratchFolder = scratchRoot / u"resources" / u"project";
    const host::Path scratchFile = scratchFolder / u"Project.xml";

    const std::shared_ptr<MetadataManagerFactory> factory = getSingleFileFactory();
    if (!factory)
        raise<MetadataWriteFailure>(to.text(), u"there is no metadata store named \"monolithic\"");
    // A core file that is there decides where the store keeps its own, not the user's settings for new projects.
    CoreMetadataHandler(scratchFolder, singleFileStore, singleFileRootName).createCoreMetadata();
    const std::string emptyFile = readStart(scratchFile);
    const std::unique_ptr<MetadataManager> destination = factory->createManager(scratchRoot);
    if (!destination)
        raise<MetadataWriteFailure>(to.text(), u"the metadata store named \"monolithic\" could not be opened");
    const std::unique_ptr<MetadataManager> source = getMetadataManagerFor(from);
    if (!source)
        raise<MetadataReadFailure>(from.text(), explainMissingSource(from));

    {
        const RepeatableRead reading(*source);
        const WholeContentWrite writing(*destination);
        copyMetadata(*source, *destination);
    }
    // A store that keeps what it was given in another place, or nowhere, would otherwise pass for an empty project.
    if (readStart(scratchFile) == emptyFile && !source->getChildren(MetadataPath()).empty())
        raise<MetadataWriteFailure>(to.text(), u"the metadata store named \"monolithic\" has not written its file");
    // The store has completed the file by now; the stores and the scratch folder are released in reverse order.
    host::FileSystem::copy_file(scratchFile, to, host::CopyOption::none);
}

std::shared_ptr<MetadataManagerFactory> getSingleFileFactory() {
    return getNamedFactory(singleFileStore);
}

}  // namespace project::metadata
