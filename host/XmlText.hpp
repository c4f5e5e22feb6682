/// Text between UTF-16 and the UTF-8 strings of libxml2.
#pragma once

#include <string>
#include <string_view>

#include <libxml/xmlstring.h>

#include "host/Export.hpp"

namespace host {

/// A UTF-16 text in the form that libxml2 takes, for as long as this object lives. Surrogates without a partner,
/// which UTF-8 cannot hold, become U+FFFD, and so does U+0000, which would end the text. One thread at a time may use
/// an object.
class HOST_EXPORT XmlText {
public:
    explicit XmlText(std::u16string_view text);

    /// Zero-terminated UTF-8, valid as long as this object.
    const xmlChar* get() const noexcept { return reinterpret_cast<const xmlChar*>(text_.c_str()); }

    /// The UTF-16 text of libxml2's string `text`, as `fromUtf8`; empty for a null pointer.
    static std::u16string toUtf16(const xmlChar* text);

private:
    std::string text_;
};

}  // namespace host
