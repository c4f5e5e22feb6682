#include "store_support/CoreFileType.hpp"

#include "project/metadata/CoreFile.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "store_support/XmlFile.hpp"

namespace store_support {

using project::metadata::raise;

std::u16string readMetadataType(const host::Path& coreFile) {
    const XmlFile xml = readXmlFile(coreFile, XmlExtent::rootOnly);
    if (!xml.root)
        raise<project::metadata::MetadataReadFailure>(coreFile.text(), xml.version ? xml.problem : u"it is missing");
    return xml.root->get(project::metadata::metadataTypeKey());
}

void requireMetadataType(const host::Path& folder, const std::u16string& type) {
    const host::Path coreFile = folder / project::metadata::coreFileName();
    const XmlFile xml = readXmlFile(coreFile, XmlExtent::rootOnly);
    // Whether damage is in the way, and how to say it, is for the store to decide.
    if (!xml.root)
        return;
    const std::u16string& found = xml.root->get(project::metadata::metadataTypeKey());
    if (found != type) {
        raise<project::metadata::MetadataWriteFailure>(
            coreFile.text(), u"the metadata has been converted from \"" + type + u"\" to \"" + found +
                                 u"\" since it was opened; open it again first");
    }
}

}  // namespace store_support
