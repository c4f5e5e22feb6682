/// Keeps libxml2 from printing, and hears what it does not return.
#pragma once

#include <initializer_list>
#include <string_view>

#include <libxml/globals.h>
#include <libxml/xmlerror.h>

namespace project::metadata::detail {

/// While it lives, libxml2 prints nothing on this thread: not all of it heeds the options of a parser. What a host has
/// set comes back at the end.
class SilentXml {
public:
    SilentXml()
        : structured_(xmlStructuredError),
          structuredContext_(xmlStructuredErrorContext),
          generic_(xmlGenericError),
          genericContext_(xmlGenericErrorContext) {
        // The error is constant from libxml2 2.12 on.
        xmlSetStructuredErrorFunc(this, [](void* context, auto* error) {
            if (error->code == XML_ERR_NO_MEMORY && !isLimit(*error))
                static_cast<SilentXml*>(context)->ranOutOfMemory_ = true;
        });
        xmlSetGenericErrorFunc(nullptr, ignore);
    }
    ~SilentXml() {
        xmlSetGenericErrorFunc(genericContext_, generic_);
        xmlSetStructuredErrorFunc(structuredContext_, structured_);
    }

    SilentXml(const SilentXml&) = delete;
    SilentXml& operator=(const SilentXml&) = delete;

    /// Whether libxml2 lacked memory for something. Much of it goes on then, without what there was no room for.
    bool ranOutOfMemory() const { return ranOutOfMemory_; }

private:
    static void ignore(void* /*context*/, const char* /*format*/, ...) {}

    /// Up to libxml2 2.13, texts that reach its limit of 10,000,000 bytes are called a lack of memory too.
    static bool isLimit(const xmlError& error) {
        for (const char* const text : {error.message, error.str1}) {
            const std::string_view said(text ? text : "");
            if (said.find("huge text node") != said.npos || said.find("text too long") != said.npos)
                return true;
        }
        return false;
    }

    xmlStructuredErrorFunc structured_;
    void* structuredContext_;
    xmlGenericErrorFunc generic_;
    void* genericContext_;
    bool ranOutOfMemory_ = false;
};

}  // namespace project::metadata::detail
