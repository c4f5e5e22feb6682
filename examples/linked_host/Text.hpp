/// Names on disk and texts, between UTF-8 and UTF-16.
#pragma once

#include <string>
#include <string_view>

namespace host {

/// What is no UTF-8 becomes U+FFFD, or, to keep the bytes of a name, U+DC00 + byte.
std::u16string decodeName(std::string_view bytes, bool keepsBytes);
std::string encodeName(std::u16string_view text, bool keepsBytes);

}  // namespace host
