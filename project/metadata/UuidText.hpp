/// The text form of UUIDs. May be called from any thread.
#pragma once

#include <algorithm>
#include <string_view>

namespace project::metadata {

/// Whether `text` has the text form of RFC 4122, in digits of either case.
inline bool isUuid(std::string_view text) {
    constexpr std::string_view form = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";
    constexpr std::string_view digits = "0123456789abcdefABCDEF";
    return std::equal(text.begin(), text.end(), form.begin(), form.end(), [digits](char given, char expected) {
        return expected == '-' ? given == '-' : digits.find(given) != std::string_view::npos;
    });
}

}  // namespace project::metadata
