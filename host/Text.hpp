/// General text between UTF-16 and UTF-8. Both functions may be called from any thread.
///
/// Names of files are no general text: see `Path`, which keeps what is not valid UTF-8.
#pragma once

#include <string>
#include <string_view>

#include "host/Export.hpp"

namespace host {

/// `text` in UTF-8. A surrogate without a partner becomes U+FFFD.
HOST_EXPORT std::string toUtf8(std::u16string_view text);

/// The UTF-8 text `bytes` in UTF-16. Each byte that is not part of valid UTF-8 becomes U+FFFD.
HOST_EXPORT std::u16string fromUtf8(std::string_view bytes);

}  // namespace host
