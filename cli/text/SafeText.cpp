#include "cli/text/SafeText.hpp"

#include <algorithm>
#include <array>
#include <cstddef>

#include "host/Text.hpp"

namespace cli {

namespace {

struct Range {
    char32_t first;
    char32_t last;
};

/// What is never shown as it is. The joiners U+200C and U+200D are not listed: some scripts cannot do without.
constexpr std::array<Range, 10> unsafe{{
    {0x00, 0x1F},        // C0 controls
    {0x7F, 0x9F},        // delete, C1 controls
    {0x061C, 0x061C},    // Arabic letter mark
    {0x200B, 0x200B},    // zero width space
    {0x200E, 0x200F},    // left-to-right and right-to-left marks
    {0x2028, 0x202E},    // line and paragraph separators, directional embeddings and overrides
    {0x2060, 0x206F},    // invisible operators, directional isolates
    {0xD800, 0xDFFF},    // surrogates without a partner
    {0xFEFF, 0xFEFF},    // byte order mark
    {0xE0000, 0xE007F},  // tags
}};

bool isUnsafe(char32_t character) {
    return std::any_of(unsafe.begin(), unsafe.end(),
                       [character](const Range& range) { return range.first <= character && character <= range.last; });
}

bool isHigh(char16_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}

bool isLow(char16_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

std::string hexadecimal(char32_t value, unsigned digits) {
    std::string text;
    while (digits-- > 0)
        text += "0123456789ABCDEF"[(value >> (4 * digits)) & 0xFU];
    return text;
}

std::string escapeOf(char32_t character) {
    constexpr std::u32string_view named = U"\\\t\n\r";
    if (const std::size_t name = named.find(character); name != named.npos)
        return {'\\', "\\tnr"[name]};
    if (character >= 0xDC80 && character <= 0xDCFF)
        return "\\x" + hexadecimal(character - 0xDC00, 2);
    return character <= 0xFFFF ? "\\u" + hexadecimal(character, 4) : "\\U" + hexadecimal(character, 8);
}

std::string escape(std::u16string_view text, bool alsoBackslashes) {
    std::string result;
    std::size_t shown = 0;  // how much of `text` is in `result`
    for (std::size_t i = 0; i < text.size();) {
        const bool isPair = isHigh(text[i]) && i + 1 < text.size() && isLow(text[i + 1]);
        const char32_t character =
            isPair ? 0x10000 + ((text[i] - 0xD800U) << 10U) + (text[i + 1] - 0xDC00U) : char32_t{text[i]};
        const std::size_t next = i + (isPair ? 2 : 1);
        if (isUnsafe(character) || (alsoBackslashes && character == U'\\')) {
            result += host::toUtf8(text.substr(shown, i - shown)) + escapeOf(character);
            shown = next;
        }
        i = next;
    }
    return result += host::toUtf8(text.substr(shown));
}

}  // namespace

std::string escapeText(std::u16string_view text) {
    return escape(text, false);
}

std::string escapeName(std::u16string_view name) {
    return escape(name, true);
}

std::string escapeMarks(const std::string& text, std::string_view marks) {
    std::string escaped;
    for (const char byte : text) {
        if (marks.find(byte) != std::string_view::npos)
            escaped += '\\';
        escaped += byte;
    }
    return escaped;
}

std::string quoteText(std::u16string_view text) {
    return '"' + escapeMarks(escapeName(text), "\"") + '"';
}

}  // namespace cli
