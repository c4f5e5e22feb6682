#include "project/metadata/AttributeRules.hpp"

#include <algorithm>

#include <libxml/tree.h>

#include "host/Text.hpp"
#include "project/metadata/detail/SilentXml.hpp"

namespace project::metadata {

namespace {

bool isAsciiNameStart(char16_t unit) {
    return (unit >= u'a' && unit <= u'z') || (unit >= u'A' && unit <= u'Z') || unit == u'_' || unit == u':';
}

bool isAsciiNameUnit(char16_t unit) {
    return isAsciiNameStart(unit) || (unit >= u'0' && unit <= u'9') || unit == u'.' || unit == u'-';
}

}  // namespace

bool isValidKey(const std::u16string& key) {
    // Nearly all keys are like this, and need not be converted for libxml2.
    if (!key.empty() && isAsciiNameStart(key.front()) && std::all_of(key.begin(), key.end(), isAsciiNameUnit))
        return true;
    // libxml2 would stop at the terminator of the converted text and never see what follows.
    if (key.find(u'\0') != std::u16string::npos)
        return false;
    // A surrogate without a partner would be another character when it is written.
    const std::string utf8 = host::toUtf8(key);
    if (host::fromUtf8(utf8) != key)
        return false;
    const detail::SilentXml silent;
    const int blanksAllowedAround = 1;
    return xmlValidateName(reinterpret_cast<const xmlChar*>(utf8.c_str()), blanksAllowedAround) == 0;
}

bool isValidAttribute(const std::u16string& value) noexcept {
    bool highSurrogatePending = false;
    for (std::size_t i = 0; i < value.size(); ++i) {
        const char16_t unit = value[i];
        // Most units are like this.
        if (unit >= 0x20 && unit < 0xD800 && !highSurrogatePending)
            continue;
        const bool isLowSurrogate = unit >= 0xDC01 && unit <= 0xDFFE;
        if (isLowSurrogate != highSurrogatePending)
            return false;
        highSurrogatePending = false;
        if (isLowSurrogate)
            continue;
        if (unit < 0x20 && unit != u'\t' && unit != u'\n' && unit != u'\r')
            return false;
        if (unit > 0xFFFD)
            return false;
        if (unit >= 0xD801 && unit <= 0xDBFE) {
            if (i + 1 == value.size())
                return false;
            highSurrogatePending = true;
        }
    }
    return true;
}

}  // namespace project::metadata
