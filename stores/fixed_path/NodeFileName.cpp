#include "stores/fixed_path/NodeFileName.hpp"

#include <algorithm>
#include <string_view>

#include <boost/uuid/name_generator_sha1.hpp>
#include <boost/uuid/uuid_io.hpp>

#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/Uuid.hpp"
#include "store_support/HexDigits.hpp"

namespace stores::fixed_path {

const std::u16string& nodeFileExtension = *new std::u16string(u".xml");

namespace {

constexpr char16_t separator = u'=';
constexpr char16_t cutMark = u'~';

/// In bytes; file systems allow 255. Shorter names leave room for deeper paths.
constexpr std::size_t maximumNameLength = 180;
constexpr std::size_t cutNameLength = 120;

/// The namespace of the hashes: a random UUID made for this purpose.
const boost::uuids::uuid hashNamespace = {
    {0x6d, 0x1e, 0x3b, 0x52, 0x90, 0x0c, 0x4f, 0x77, 0x8a, 0x35, 0xc4, 0x19, 0x2e, 0xd8, 0x61, 0xfb}};

bool isHighSurrogate(char16_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool isLowSurrogate(char16_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

/// Control characters, the separators and marks of this scheme, what other systems forbid in file names, and invisible
/// characters that change the direction of text or break lines.
bool isUnsafe(char16_t unit) {
    const bool isAlphanumeric =
        (unit >= u'a' && unit <= u'z') || (unit >= u'A' && unit <= u'Z') || (unit >= u'0' && unit <= u'9');
    if (isAlphanumeric)
        return false;
    constexpr std::u16string_view forbidden = u"\"%*/:<=>?\\|~\u061C\u200E\u200F\u2028\u2029\uFEFF";
    return unit < 0x20 || (unit >= 0x7F && unit <= 0x9F) || (unit >= 0x202A && unit <= 0x202E) ||
           (unit >= 0x2066 && unit <= 0x2069) || forbidden.find(unit) != std::u16string_view::npos;
}

std::u16string escape(char16_t unit) {
    return unit < 0x100 ? u"%" + toHex(unit, 2) : u"%u" + toHex(unit, 4);
}

/// The encoded form of the character at `text[i]`; `i` moves to its last unit.
std::u16string encodeCharacter(const std::u16string& text, std::size_t& i) {
    const char16_t unit = text[i];
    if (isHighSurrogate(unit) && i + 1 < text.size() && isLowSurrogate(text[i + 1]))
        return text.substr(i++, 2);
    if (isHighSurrogate(unit) || isLowSurrogate(unit) || isUnsafe(unit))
        return escape(unit);
    return std::u16string(1, unit);
}

void appendEncoded(std::u16string& name, const std::u16string& text) {
    // Most texts are of letters, digits and the like.
    const auto isPlain = [](char16_t unit) { return unit >= u' ' && unit < 0x7F && !isUnsafe(unit); };
    if (std::all_of(text.begin(), text.end(), isPlain)) {
        name += text;
        return;
    }
    for (std::size_t i = 0; i < text.size(); ++i)
        name += encodeCharacter(text, i);
}

/// A name must not begin or end with what hides a file or gets lost on other systems; nor must a folder's name end like
/// a file's, or the folder of "a.xml" would stand where the file of "a" belongs.
void escapeEdges(std::u16string& name) {
    const auto isEdgy = [](char16_t unit) { return unit == u'.' || unit == u' '; };
    if (isEdgy(name.back()))
        name.replace(name.size() - 1, 1, escape(name.back()));
    if (project::metadata::ends_with(name, nodeFileExtension))
        name.replace(name.size() - nodeFileExtension.size(), 1, escape(u'.'));
    if (isEdgy(name.front()))
        name.replace(0, 1, escape(name.front()));
}

/// How many units the encoded character at `name[i]` has.
std::size_t encodedLength(const std::u16string& name, std::size_t i) {
    if (name[i] == u'%')
        return name[i + 1] == u'u' ? 6 : 3;
    return isHighSurrogate(name[i]) ? 2 : 1;
}

/// As much of the beginning as fits, whole characters only, and a hash of all of it.
std::u16string cut(const std::u16string& name) {
    std::size_t kept = 0;
    for (std::size_t bytes = 0; bytes <= cutNameLength;) {
        const std::size_t length = encodedLength(name, kept);
        bytes += toUtf8(name.substr(kept, length)).size();
        if (bytes <= cutNameLength)
            kept += length;
    }
    const auto hash = boost::uuids::name_generator_sha1(hashNamespace)(toUtf8(name));
    return name.substr(0, kept) + separator + cutMark + fromUtf8(boost::uuids::to_string(hash));
}

/// The character that is escaped at `name[i]`; `i` moves to its last unit. No value if there is none.
std::optional<char16_t> unescape(const std::u16string& name, std::size_t& i) {
    const bool isShort = name.compare(i, 2, u"%u") != 0;
    const auto unit = fromHex(name.substr(i + (isShort ? 1 : 2), isShort ? 2 : 4));
    if (unit)
        i += encodedLength(name, i) - 1;
    return unit;
}

std::optional<std::u16string> decode(const std::u16string& name) {
    std::u16string text;
    for (std::size_t i = 0; i < name.size(); ++i) {
        const auto unit = name[i] == u'%' ? unescape(name, i) : std::optional(name[i]);
        if (!unit)
            return std::nullopt;
        text += *unit;
    }
    return text;
}

/// Whether the last name of `path` has a separator. Asked for every file, this makes no texts.
bool hasSeparator(const Path& path) {
    const std::u16string& text = path.text();
    return text.find(separator, text.rfind(u'/') + 1) != std::u16string::npos;
}

}  // namespace

std::u16string nodeFolderName(const PathElement& element) {
    std::u16string name;
    name.reserve(element.getType().size() + 1 + element.getLocation().size() + nodeFileExtension.size());
    appendEncoded(name, element.getType());
    name += separator;
    appendEncoded(name, element.getLocation());
    escapeEdges(name);
    constexpr std::size_t longestCharacter = 3;  // bytes of UTF-8 a unit of UTF-16 at most
    const bool isShort = longestCharacter * name.size() <= maximumNameLength;
    return isShort || toUtf8(name).size() <= maximumNameLength ? name : cut(name);
}

std::u16string nodeFileName(const PathElement& element) {
    return nodeFolderName(element) + nodeFileExtension;
}

std::optional<PathElement> parseNodeFolderName(const std::u16string& name) {
    const std::size_t split = name.find(separator);
    if (split == std::u16string::npos)
        return std::nullopt;
    const auto type = decode(name.substr(0, split));
    const auto location = decode(name.substr(split + 1));
    if (!type || !location)
        return std::nullopt;
    const PathElement element(*type, *location);
    // What decodes could still be spelled otherwise than it would be encoded.
    return nodeFolderName(element) == name ? std::optional(element) : std::nullopt;
}

bool isNodeFile(const Path& path) {
    return hasSeparator(path) && project::metadata::ends_with(path.text(), nodeFileExtension) &&
           !project::metadata::getMarkedUuid(path);
}

std::u16string nodeFilePattern() {
    return std::u16string(u"**/*") + separator + u"*" + nodeFileExtension;
}

bool isNodeFolder(const Path& path) {
    return hasSeparator(path) && !project::metadata::ends_with(path.text(), nodeFileExtension);
}

}  // namespace stores::fixed_path
