#include "stores/postgresql/PathId.hpp"

#include <boost/uuid/name_generator_sha1.hpp>

namespace stores::postgresql {

namespace {

constexpr char unitsFollow = '\xFF';

}  // namespace

std::string encodeText(const std::u16string& text) {
    std::string bytes = toUtf8(text);
    if (fromUtf8(bytes) == text)
        return bytes;
    bytes = unitsFollow;
    for (const char16_t unit : text) {
        bytes += static_cast<char>(unit & 0xFF);
        bytes += static_cast<char>(unit >> 8);
    }
    return bytes;
}

std::optional<std::u16string> decodeText(std::string_view bytes) {
    std::u16string text;
    if (bytes.empty() || bytes.front() != unitsFollow) {
        text = fromUtf8(bytes);
    } else {
        for (std::size_t i = 1; i + 1 < bytes.size(); i += 2) {
            const auto low = static_cast<unsigned char>(bytes[i]);
            const auto high = static_cast<unsigned char>(bytes[i + 1]);
            text += static_cast<char16_t>(low | high << 8);
        }
    }
    return encodeText(text) == bytes ? std::optional(text) : std::nullopt;
}

// The name is the length of the type in four bytes, the highest first, then the type and the location.
PathId getChildId(const PathId& parent, const PathElement& element) {
    const std::string type = encodeText(element.getType());
    std::string name;
    for (int shift = 24; shift >= 0; shift -= 8)
        name += static_cast<char>(type.size() >> shift & 0xFFU);
    name += type;
    name += encodeText(element.getLocation());
    return boost::uuids::name_generator_sha1(parent)(name.data(), name.size());
}

std::vector<PathId> getIds(const MetadataPath& path) {
    std::vector<PathId> ids{rootId};
    for (const PathElement& element : path.getPath())
        ids.push_back(getChildId(ids.back(), element));
    return ids;
}

PathId getId(const MetadataPath& path) {
    return getIds(path).back();
}

}  // namespace stores::postgresql
