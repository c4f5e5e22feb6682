#include "operations/XmlCheck.hpp"

#include <memory>
#include <new>
#include <utility>

#include <libxml/parser.h>
#include <libxml/xmlreader.h>

#include "project/exception/ProjectException.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "store_support/Disk.hpp"
#include "store_support/StoreErrors.hpp"

namespace operations {

namespace {

struct ReaderDeleter {
    void operator()(xmlTextReader* reader) const { xmlFreeTextReader(reader); }
};

class XmlCheck {
public:
    explicit XmlCheck(const host::Path& file) : file_(file) {}

    std::vector<Problem> run() {
        try {
            const auto opened = store_support::openRegularFile(file_, 0);
            if (!opened) {
                // Somebody has removed it meanwhile, or it is a link that leads nowhere.
                if (const auto status = store_support::findStatus(file_))
                    store_support::requireRegular(file_, *status);
            } else if (opened->status.st_size == 0) {
                add(0, u"it is empty");
            } else if (!isSound()) {
                readAsXml(opened->descriptor.number());
                readAsMetadata();
            }
        } catch (const pm::MetadataReadFailure& error) {
            add(0, store_support::getReadProblem(error));
        }
        return std::move(problems_);
    }

private:
    void add(int line, const std::u16string& problem) { problems_.push_back({file_, line, problem}); }

    static void noteError(void* context, xmlError* error) {
        auto& check = *static_cast<XmlCheck*>(context);
        if (error->level < XML_ERR_ERROR || check.hasError_)
            return;
        check.hasError_ = true;
        std::string message = error->message ? error->message : "it is no XML";
        while (!message.empty() && message.back() == '\n')
            message.pop_back();
        check.add(error->line, u"it is no well-formed XML: " + host::fromUtf8(message));
    }

    bool isSound() const {
        try {
            return pm::readFromFile(file_) != nullptr;
        } catch (const project::exception::ProjectException&) {
            return false;
        }
    }

    /// Metadata is less than XML: some characters, many levels and what entities make large are none.
    void readAsMetadata() {
        pm::LeftOut leftOut;
        try {
            pm::readFromFile(file_, leftOut);
        } catch (const pm::MetadataReadFailure& error) {
            if (!hasError_)
                add(0, store_support::getReadProblem(error));
        }
        for (const pm::RefusedAttribute& attribute : leftOut.refused) {
            const std::u16string name = u"\"" + attribute.key + u"\" is none that metadata can hold";
            add(attribute.line,
                attribute.isKeyRefused ? u"the attribute name " + name : u"the value of the attribute " + name);
        }
    }

    void readAsXml(int descriptor) {
        const std::unique_ptr<xmlTextReader, ReaderDeleter> reader(
            xmlReaderForFd(descriptor, nullptr, nullptr, XML_PARSE_NONET));
        if (!reader)
            throw std::bad_alloc();
        xmlTextReaderSetStructuredErrorHandler(reader.get(), noteError, this);
        int result = 0;
        do {
            result = xmlTextReaderRead(reader.get());
        } while (result == 1);
        if (result != 0 && !hasError_)
            add(xmlTextReaderGetParserLineNumber(reader.get()), u"it is no well-formed XML");
        hasError_ = hasError_ || result != 0;
    }

    const host::Path& file_;
    bool hasError_ = false;
    std::vector<Problem> problems_;
};

}  // namespace

std::vector<Problem> checkXml(const host::Path& file) {
    xmlInitParser();
    return XmlCheck(file).run();
}

}  // namespace operations
