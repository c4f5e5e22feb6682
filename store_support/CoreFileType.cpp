#include "store_support/CoreFileType.hpp"

#include "store_support/XmlFile.hpp"

namespace store_support {

std::u16string readMetadataType(const Path& coreFile) {
    const XmlFile xml = readXmlFile(coreFile, XmlExtent::rootOnly);
    if (!xml.root)
        raise<MetadataReadFailure>(coreFile.text(), xml.version ? xml.problem : u"it is missing");
    return xml.root->get(metadataTypeKey());
}

void requireMetadataType(const Path& folder, const std::u16string& type) {
    const Path coreFile = folder / coreFileName();
    const XmlFile xml = readXmlFile(coreFile, XmlExtent::rootOnly);
    // Whether damage is in the way, and how to say it, is for the store to decide.
    if (!xml.root)
        return;
    const std::u16string& found = xml.root->get(metadataTypeKey());
    if (found != type) {
        raise<MetadataWriteFailure>(coreFile.text(), u"the metadata has been converted from \"" + type + u"\" to \"" +
                                                         found + u"\" since it was opened; open it again first");
    }
}

}  // namespace store_support
