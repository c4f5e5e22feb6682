/// Which keys and values a metadata node may hold: those that survive being written to an XML file.
///
/// Both functions keep no state and may be called from any thread.
#pragma once

#include <string>

#include "project/Export.hpp"

namespace project::metadata {

/// Whether `key` can name an attribute: an XML 1.0 Name, with or without blanks around it.
/// @throws std::bad_alloc only
PROJECT_METADATA_EXPORT bool isValidKey(const std::u16string& key);

/// Whether `value` can be an attribute's value: no control characters but tab, line feed and carriage return, neither
/// U+FFFE nor U+FFFF, and surrogates in pairs. The bounds of the surrogate tests lie one inside each end of their
/// blocks: the units 0xD800, 0xDBFF, 0xDC00 and 0xDFFF pass as ordinary characters.
PROJECT_METADATA_EXPORT bool isValidAttribute(const std::u16string& value) noexcept;

}  // namespace project::metadata
