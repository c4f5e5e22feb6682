#include "project/metadata/Uuid.hpp"

#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <system_error>
#include <utility>

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include "host/FileUtils.hpp"
#include "host/Text.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"
#include "project/metadata/UuidText.hpp"

namespace project::metadata {

namespace {

constexpr const char16_t* markerStart = u"uuid-";
constexpr const char16_t* markerEnd = u".xml";
constexpr const char16_t* markerElement = u"uuid";

/// The name of the root element of `file`; no value if it cannot be read.
std::optional<std::u16string> readRootName(const host::Path& file) {
    std::error_code code;
    // Opening a pipe could take for ever.
    if (!std::filesystem::is_regular_file(file.accessName(), code))
        return std::nullopt;
    try {
        return readRootFromFile(file)->getName();
    } catch (const exception::ProjectException&) {
        return std::nullopt;
    }
}

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
    const bool isNew = !host::FileUtils::existNoExcept(marker);
    try {
        writeToFile(MetadataNodeSpecification(markerElement), marker, compactEnding);
    } catch (...) {
        // The name alone says which UUID the project has.
        if (isNew)
            unlink(marker.accessName().c_str());
        throw;
    }
    return marker;
}

std::optional<std::u16string> getMarkedUuid(const host::Path& file) {
    // Stores ask this for every file, most of which are none.
    const std::u16string& text = file.text();
    const std::u16string_view start = markerStart;
    if (text.compare(text.rfind(u'/') + 1, start.size(), start) != 0 || !ends_with(text, markerEnd))
        return std::nullopt;
    std::u16string uuid = stripExtension(file.fileName().text(), markerEnd).substr(start.size());
    const auto rootName = readRootName(file);
    const bool isMarker = rootName ? *rootName == markerElement : isUuid(host::toUtf8(uuid));
    return isMarker ? std::optional(std::move(uuid)) : std::nullopt;
}

}  // namespace project::metadata
