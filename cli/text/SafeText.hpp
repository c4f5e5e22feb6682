/// Texts from the disk made safe to show: a file name may hold escape sequences that act on the terminal, or marks that
/// make it look like another name.
///
/// All functions may be called from any thread.
#pragma once

#include <string>
#include <string_view>

namespace cli {

/// `text` in UTF-8, with these replaced by escapes: control characters, marks that change the direction of text,
/// other characters that cannot be seen, and what is no Unicode. The escapes are `\t`, `\n`, `\r`, `\xNN` for a byte
/// that is not part of valid UTF-8 (see `host::Path`), and `\uNNNN` or `\UNNNNNNNN` for a character.
std::string escapeText(std::u16string_view text);

/// As `escapeText`, with `\\` for a backslash, so that different names look different.
std::string escapeName(std::u16string_view name);

/// `text` with a backslash before each of `marks`.
std::string escapeMarks(const std::string& text, std::string_view marks);

/// `text` in quotes as a literal: as `escapeName`, with `\"` for a quote, so that it is clear where it ends and
/// different texts look different.
std::string quoteText(std::u16string_view text);

}  // namespace cli
