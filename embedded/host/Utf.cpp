#include "embedded/host/Utf.hpp"

#include "host/Text.hpp"

#include <boost/locale/utf.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <type_traits>

namespace host {

namespace {

namespace utf = boost::locale::utf;

constexpr utf::code_point replacement = 0xFFFD;

/// A byte of ill-formed UTF-8 is at least 0x80, so the units that stand for one are U+DC80..U+DCFF.
constexpr char16_t firstKeptByte = 0xDC80;
constexpr char16_t lastKeptByte = 0xDCFF;

bool isKeptByte(char16_t unit) {
    return unit >= firstKeptByte && unit <= lastKeptByte;
}

/// Calls `wellFormed` with each code point of `text`, and `illFormed` with each unit that is part of none.
template <class Unit, class WellFormed, class IllFormed>
void decode(std::basic_string_view<Unit> text, const WellFormed& wellFormed, const IllFormed& illFormed) {
    for (auto position = text.begin(); position != text.end();) {
        const auto start = position;
        const utf::code_point codePoint = utf::utf_traits<Unit>::decode(position, text.end());
        if (utf::is_valid_codepoint(codePoint)) {
            wellFormed(codePoint);
        } else {
            illFormed(*start);
            position = start + 1;
        }
    }
}

template <class Unit>
void append(std::basic_string<Unit>& text, utf::code_point codePoint) {
    utf::utf_traits<Unit>::encode(codePoint, std::back_inserter(text));
}

/// How many units at a time compilers look at or copy in a few instructions.
constexpr std::size_t block = 32;

/// How many units of `text` come before the first that is not ASCII.
template <class Unit>
std::size_t countAscii(std::basic_string_view<Unit> text) {
    using Unsigned = std::make_unsigned_t<Unit>;
    const Unit* from = text.data();
    const Unit* const end = from + text.size();
    for (; end - from >= static_cast<std::ptrdiff_t>(block); from += block) {
        Unsigned bits = 0;
        for (std::size_t i = 0; i < block; ++i)
            bits |= static_cast<Unsigned>(from[i]);
        if (bits >= 0x80)
            break;
    }
    while (from != end && static_cast<Unsigned>(*from) < 0x80)
        ++from;
    return static_cast<std::size_t>(from - text.data());
}

/// The first `count` units of `text`, which are ASCII.
template <class Result, class Unit>
std::basic_string<Result> takeAscii(std::basic_string_view<Unit> text, std::size_t count) {
    std::basic_string<Result> result(count, Result());
    const Unit* from = text.data();
    auto to = result.begin();
    for (; count >= block; count -= block, from += block) {
        std::array<Result, block> piece;
        for (std::size_t i = 0; i < block; ++i)
            piece[i] = static_cast<Result>(from[i]);
        to = std::copy(piece.begin(), piece.end(), to);
    }
    std::transform(from, from + count, to, [](Unit unit) { return static_cast<Result>(unit); });
    return result;
}

/// How many units of UTF-16 the UTF-8 text `bytes` makes, if it is well-formed.
std::size_t countUnits(std::string_view bytes) {
    std::size_t count = 0;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        const bool continues = value >= 0x80 && value < 0xC0;
        const bool needsTwo = value >= 0xF0;
        count += (continues ? 0U : 1U) + (needsTwo ? 1U : 0U);
    }
    return count;
}

/// Appends "\\", `kind` and the last `digits` hexadecimal digits of `value`.
void appendEscape(std::u16string& text, char16_t kind, unsigned digits, utf::code_point value) {
    text += u'\\';
    text += kind;
    while (digits-- > 0)
        text += u"0123456789ABCDEF"[(value >> (4 * digits)) & 0xF];
}

bool canBeShown(utf::code_point codePoint) {
    const bool control = codePoint < 0x20 || (codePoint >= 0x7F && codePoint < 0xA0);
    const bool noCharacter = codePoint == 0xFFFE || codePoint == 0xFFFF;
    return !control && !noCharacter;
}

}  // namespace

std::u16string decodeUtf8(std::string_view bytes, IllFormed policy) {
    // Most text is ASCII, at least where it begins, and that is taken over as it stands.
    const std::size_t asciiCount = countAscii(bytes);
    std::u16string text = takeAscii<char16_t>(bytes, asciiCount);
    if (asciiCount == bytes.size())
        return text;
    bytes.remove_prefix(asciiCount);
    text.reserve(asciiCount + countUnits(bytes));
    decode(
        bytes, [&](utf::code_point codePoint) { append(text, codePoint); },
        [&](char byte) {
            const bool keep = policy == IllFormed::keepBytes;
            text += static_cast<char16_t>(keep ? 0xDC00 + static_cast<unsigned char>(byte) : replacement);
        });
    return text;
}

std::string encodeUtf8(std::u16string_view text, IllFormed policy) {
    const std::size_t asciiCount = countAscii(text);
    std::string bytes = takeAscii<char>(text, asciiCount);
    text.remove_prefix(asciiCount);
    decode(
        text, [&](utf::code_point codePoint) { append(bytes, codePoint); },
        [&](char16_t unit) {
            if (policy == IllFormed::keepBytes && isKeptByte(unit))
                bytes += static_cast<char>(unit - 0xDC00);
            else
                append(bytes, replacement);
        });
    return bytes;
}

std::u16string toReadable(std::u16string_view text) {
    std::u16string result;
    result.reserve(text.size());
    decode(
        text,
        [&](utf::code_point codePoint) {
            if (canBeShown(codePoint))
                append(result, codePoint);
            else
                appendEscape(result, u'u', 4, codePoint);
        },
        [&](char16_t unit) {
            if (isKeptByte(unit))
                appendEscape(result, u'x', 2, unit);
            else
                appendEscape(result, u'u', 4, unit);
        });
    return result;
}

std::string toUtf8(std::u16string_view text) {
    return encodeUtf8(text, IllFormed::replace);
}

std::u16string fromUtf8(std::string_view bytes) {
    return decodeUtf8(bytes, IllFormed::replace);
}

}  // namespace host
