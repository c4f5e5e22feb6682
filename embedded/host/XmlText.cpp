#include "host/XmlText.hpp"

#include "host/Text.hpp"

namespace host {

XmlText::XmlText(std::u16string_view text) : text_(toUtf8(text)) {
    for (auto end = text_.find('\0'); end != std::string::npos; end = text_.find('\0', end))
        text_.replace(end, 1, "\xEF\xBF\xBD");
}

std::u16string XmlText::toUtf16(const xmlChar* text) {
    return text ? fromUtf8(reinterpret_cast<const char*>(text)) : std::u16string();
}

}  // namespace host
