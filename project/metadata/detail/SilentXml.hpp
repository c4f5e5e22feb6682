/// Keeps libxml2 from printing.
#pragma once

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
        xmlSetStructuredErrorFunc(nullptr, [](void* /*context*/, auto* /*error*/) {});
        xmlSetGenericErrorFunc(nullptr, ignore);
    }
    ~SilentXml() {
        xmlSetGenericErrorFunc(genericContext_, generic_);
        xmlSetStructuredErrorFunc(structuredContext_, structured_);
    }

    SilentXml(const SilentXml&) = delete;
    SilentXml& operator=(const SilentXml&) = delete;

private:
    static void ignore(void* /*context*/, const char* /*format*/, ...) {}

    xmlStructuredErrorFunc structured_;
    void* structuredContext_;
    xmlGenericErrorFunc generic_;
    void* genericContext_;
};

}  // namespace project::metadata::detail
