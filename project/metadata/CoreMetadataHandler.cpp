#include "project/metadata/CoreMetadataHandler.hpp"

#include <memory>

#include "host/FileSystem.hpp"
#include "project/metadata/CoreFile.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/detail/CoreFileAccess.hpp"

namespace project::metadata {

CoreMetadataHandler::CoreMetadataHandler(const host::Path& folder, const std::u16string& metadataType,
                                         const std::u16string& rootNodeName)
    : coreFile_(folder / coreFileName()), metadataType_(metadataType), rootNodeName_(rootNodeName) {}

host::Path CoreMetadataHandler::getRootMetadataFile() const {
    return coreFile_;
}

bool CoreMetadataHandler::isCoreMetadataDefined() const {
    if (!host::FileSystem::exists(coreFile_))
        return false;
    const std::unique_ptr<MetadataNode> node = detail::readCoreFile(coreFile_);
    const std::u16string& type = node->get(metadataTypeKey());
    return !type.empty() && type == metadataType_;
}

void CoreMetadataHandler::createCoreMetadata() const {
    MetadataNodeSpecification node(rootNodeName_);
    node.put(metadataTypeKey(), metadataType_);
    detail::writeCoreFile(node, coreFile_);
}

void CoreMetadataHandler::ensureCoreMetadataFileExists() const {
    if (!isCoreMetadataDefined())
        createCoreMetadata();
}

}  // namespace project::metadata
