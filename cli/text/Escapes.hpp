/// The way back from the escapes of SafeText.hpp. Keeps no state; may be called from any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace cli {

/// What stands behind a backslash.
struct Escape {
    char32_t mark;   ///< its first character, U+0000 at the end of the text
    char32_t value;  ///< the character of `\t`, `\n`, `\r`; the number of `\xNN`, `\uNNNN`, `\UNNNNNNNN`; else the mark
};

/// Reads what stands at `next` of `text`, behind a backslash, and moves `next` behind it.
/// @param refuse called with the reason if digits are missing, or make no character; must not return
template <class Text, class Refuse>
Escape readEscape(const Text& text, std::size_t& next, const Refuse& refuse) {
    constexpr std::u32string_view names = U"tnrxuU";
    constexpr std::u32string_view controls = U"\t\n\r";
    constexpr std::size_t digitCounts[] = {0, 0, 0, 2, 4, 8};
    constexpr std::u32string_view digits = U"0123456789ABCDEFabcdef";
    const auto take = [&] { return next == text.size() ? U'\0' : static_cast<char32_t>(text[next++]); };
    const char32_t mark = take();
    const std::size_t kind = names.find(mark);
    if (kind == names.npos)
        return {mark, mark};
    if (kind < controls.size())
        return {mark, controls[kind]};
    char32_t number = 0;
    for (std::size_t i = 0; i < digitCounts[kind]; ++i) {
        const std::size_t digit = digits.find(take());
        if (digit == digits.npos)
            refuse("an escape lacks hexadecimal digits");
        number = number * 16 + static_cast<char32_t>(digit < 16 ? digit : digit - 6);
    }
    if (number > 0x10FFFF)
        refuse("an escape names no character");
    return {mark, number};
}

/// One unit, or two for a character beyond U+FFFF.
inline std::u16string toUnits(char32_t character) {
    if (character < 0x10000)
        return std::u16string(1, static_cast<char16_t>(character));
    const char32_t rest = character - 0x10000;
    return {static_cast<char16_t>(0xD800 + (rest >> 10U)), static_cast<char16_t>(0xDC00 + (rest & 0x3FFU))};
}

}  // namespace cli
