/// Hexadecimal digits, for escapes. Keeps no state; may be called from any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace store_support {

/// The last `count` digits of `value`, in capitals.
inline std::u16string toHex(unsigned value, std::size_t count) {
    std::u16string digits(count, u'0');
    for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit, value >>= 4U)
        *digit = u"0123456789ABCDEF"[value & 0xFU];
    return digits;
}

/// The number that the digits, capitals or not, stand for; no value if there are none, or anything else among them, or
/// more than four.
inline std::optional<char16_t> fromHex(std::u16string_view digits) {
    constexpr std::u16string_view all = u"0123456789ABCDEFabcdef";
    if (digits.empty() || digits.size() > 4 || digits.find_first_not_of(all) != std::u16string_view::npos)
        return std::nullopt;
    unsigned value = 0;
    for (const char16_t digit : digits) {
        const auto place = static_cast<unsigned>(all.find(digit));
        value = value * 16 + (place < 16 ? place : place - 6);
    }
    return static_cast<char16_t>(value);
}

}  // namespace store_support
