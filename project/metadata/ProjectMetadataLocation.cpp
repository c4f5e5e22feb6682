#include "project/metadata/ProjectMetadataLocation.hpp"

#include <memory>

#include "host/FileSystem.hpp"
#include "project/metadata/CoreFile.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataRoots.hpp"
#include "project/metadata/detail/CoreFileAccess.hpp"

namespace project::metadata {

ProjectMetadataLocation::ProjectMetadataLocation(const host::Path& root) : root_(root) {}

ProjectMetadataLocation::~ProjectMetadataLocation() = default;

host::Path ProjectMetadataLocation::getDirectory() const {
    if (const auto coreFile = locateCoreFile())
        return getParentFolder(*coreFile);
    return root_ / getRootFromSettings();
}

host::Path ProjectMetadataLocation::getCoreFile() const {
    return getDirectory() / coreFileName();
}

bool ProjectMetadataLocation::hasCoreFile() const {
    return locateCoreFile().has_value();
}

std::optional<host::Path> ProjectMetadataLocation::locateCoreFile() const {
    for (const std::u16string& name : getSupportedRoots()) {
        host::Path candidate = root_ / name / coreFileName();
        try {
            if (host::FileSystem::exists(candidate))
                return candidate;
        } catch (...) {
            raise<MetadataReadFailure>(candidate.text(), getCauseMessage());
        }
    }
    return std::nullopt;
}

std::optional<std::u16string> ProjectMetadataLocation::getMetadataType() const {
    const auto coreFile = locateCoreFile();
    if (!coreFile)
        return std::nullopt;
    const std::unique_ptr<MetadataNode> node = detail::readCoreFile(*coreFile);
    const std::u16string& type = node->get(metadataTypeKey());
    if (type.empty())
        return std::nullopt;
    return type;
}

}  // namespace project::metadata
