/// What tells one path of a project from all others: a number that follows from its steps.
///
/// No function keeps state; all may be called from any thread.
#pragma once

#include <boost/uuid/uuid.hpp>
#include <boost/uuid/uuid_hash.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "stores/Names.hpp"

namespace stores::postgresql {

/// A name-based UUID of version 5 (RFC 4122), of which the number of the parent is the name space and the last step the
/// name. So whoever knows a path knows its number and those of its ancestors without asking.
using PathId = boost::uuids::uuid;

/// The root path's.
constexpr PathId rootId{};

/// A text as a column of bytes holds it: in UTF-8, or where that does not keep it, 0xFF, which no UTF-8 begins with,
/// and its UTF-16 units, the low byte first.
std::string encodeText(const std::u16string& text);

/// No value if `bytes` are not what `encodeText` makes.
std::optional<std::u16string> decodeText(std::string_view bytes);

PathId getChildId(const PathId& parent, const PathElement& element);

/// The numbers of the root path, of the path's other ancestors and of itself, in this order.
std::vector<PathId> getIds(const MetadataPath& path);

/// The number of the path itself.
PathId getId(const MetadataPath& path);

}  // namespace stores::postgresql
