#include "store_support/CoreFileType.hpp"

#include "host/FileUtils.hpp"
#include "project/metadata/CoreFile.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataXml.hpp"

namespace store_support {

std::u16string readMetadataType(const host::Path& coreFile) {
    return project::metadata::readRootFromFile(coreFile)->get(project::metadata::metadataTypeKey());
}

void requireMetadataType(const host::Path& folder, const std::u16string& type) {
    const host::Path coreFile = folder / project::metadata::coreFileName();
    std::u16string found = type;
    try {
        if (host::FileUtils::existNoExcept(coreFile))
            found = readMetadataType(coreFile);
    } catch (const project::exception::ProjectException&) {
        // Whether damage is in the way, and how to say it, is for the store to decide.
    }
    if (found != type) {
        project::metadata::raise<project::metadata::MetadataWriteFailure>(
            coreFile.text(), u"the metadata has been converted from \"" + type + u"\" to \"" + found +
                                 u"\" since it was opened; open it again first");
    }
}

}  // namespace store_support
