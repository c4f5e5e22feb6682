#include "cli/text/Glob.hpp"

#include <fnmatch.h>
#include <locale.h>

#include <cerrno>
#include <system_error>

#include "host/Text.hpp"

namespace cli {

namespace {

/// Makes fnmatch read UTF-8, whatever the user's language: "?" is one character, and ranges go by code points.
void useUtf8() {
    static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    if (!utf8)
        throw std::system_error(errno, std::generic_category(), "The locale C.UTF-8 cannot be used");
    uselocale(utf8);
}

}  // namespace

Glob::Glob(const std::string& pattern, bool ignoreCase)
    : pattern_(host::toUtf8(host::fromUtf8(pattern))), flags_(ignoreCase ? FNM_CASEFOLD : 0) {
    useUtf8();
}

bool Glob::matches(const std::u16string& text) const {
    return fnmatch(pattern_.c_str(), host::toUtf8(text).c_str(), flags_) == 0;
}

}  // namespace cli
