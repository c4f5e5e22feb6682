#include "project/metadata/Uuid.hpp"

#include <sstream>

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"

namespace project::metadata {

namespace {

constexpr const char16_t* markerStart = u"uuid-";
constexpr const char16_t* markerEnd = u".xml";

}  // namespace

std::u16string generateUUID() {
    std::ostringstream text;
    text << boost::uuids::random_generator()();
    const std::string ascii = text.str();
    return std::u16string(ascii.begin(), ascii.end());
}

host::Path assignUuid(const host::Path& root, const std::u16string& uuid) {
    const std::u16string fileName = markerStart + (uuid.empty() ? generateUUID() : uuid) + markerEnd;
    host::Path marker = ProjectMetadataLocation(root).getDirectory() / fileName;
    const bool compactEnding = false;
    writeToFile(MetadataNodeSpecification(u"uuid"), marker, compactEnding);
    return marker;
}

std::optional<std::u16string> getMarkedUuid(const std::u16string& fileName) {
    const std::u16string name = stripExtension(fileName, markerEnd);
    const std::u16string start = markerStart;
    if (name == fileName || name.compare(0, start.size(), start) != 0)
        return std::nullopt;
    return name.substr(start.size());
}

}  // namespace project::metadata
