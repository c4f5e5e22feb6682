#include "project/metadata/AttributeRules.hpp"

#include <libxml/tree.h>

#include "host/XmlText.hpp"

namespace project::metadata {

bool isValidKey(const std::u16string& key) {
    // libxml2 would stop at the terminator of the converted text and never see what follows.
    if (key.find(u'\0') != std::u16string::npos)
        return false;
    const int blanksAllowedAround = 1;
    return xmlValidateName(host::XmlText(key).get(), blanksAllowedAround) == 0;
}

bool isValidAttribute(const std::u16string& value) noexcept {
    bool highSurrogatePending = false;
    for (std::size_t i = 0; i < value.size(); ++i) {
        const char16_t unit = value[i];
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
