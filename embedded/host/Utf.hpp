/// UTF-8 and UTF-16 with a choice of what becomes of text that is neither. Every function may be called
/// from any thread.
///
/// UTF-8 is what The Unicode Standard, section 3.9, calls well-formed: no overlong forms, no surrogates, nothing above
/// U+10FFFF. Ill-formed text is dealt with unit by unit: decoding goes on right behind the first unit of it.
#pragma once

#include <string>
#include <string_view>

namespace host {

enum class IllFormed {
    /// Each unit becomes U+FFFD.
    replace,
    /// A byte becomes the code unit 0xDC00 + byte, which is a low surrogate without a partner, and is turned back into
    /// the byte. All other surrogates without a partner become U+FFFD.
    keepBytes
};

std::u16string decodeUtf8(std::string_view bytes, IllFormed policy);
std::string encodeUtf8(std::u16string_view text, IllFormed policy);

/// `text` for people to read: what cannot be shown is written as "\u0007", and a byte that `keepBytes` kept as "\xE4".
std::u16string toReadable(std::u16string_view text);

}  // namespace host
