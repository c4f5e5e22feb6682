#include "project/metadata/Uuid.hpp"

#include <sstream>

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"

namespace project::metadata {

std::u16string generateUUID() {
    std::ostringstream text;
    text << boost::uuids::random_generator()();
    const std::string ascii = text.str();
    return std::u16string(ascii.begin(), ascii.end());
}

host::Path assignUuid(const host::Path& root, const std::u16string& uuid) {
    const std::u16string fileName = u"uuid-" + (uuid.empty() ? generateUUID() : uuid) + u".xml";
    host::Path marker = ProjectMetadataLocation(root).getDirectory() / fileName;
    const bool compactEnding = false;
    writeToFile(MetadataNodeSpecification(u"uuid"), marker, compactEnding);
    return marker;
}

}  // namespace project::metadata
