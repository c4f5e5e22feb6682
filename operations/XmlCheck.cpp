#include "operations/XmlCheck.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <system_error>

#include <libxml/parser.h>
#include <libxml/xmlreader.h>

#include "host/Text.hpp"
#include "host/XmlText.hpp"
#include "project/metadata/AttributeRules.hpp"

namespace operations {

namespace {

namespace pm = project::metadata;

struct ReaderDeleter {
    void operator()(xmlTextReader* reader) const { xmlFreeTextReader(reader); }
};

class FileDescriptor {
public:
    explicit FileDescriptor(const host::Path& file)
        : descriptor_(open(file.accessName().c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
    ~FileDescriptor() {
        if (descriptor_ >= 0)
            close(descriptor_);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    int get() const { return descriptor_; }

private:
    int descriptor_;
};

class XmlCheck {
public:
    explicit XmlCheck(const host::Path& file) : file_(file) {}

    std::vector<Problem> run() {
        const FileDescriptor descriptor(file_);
        struct stat status {};
        if (descriptor.get() < 0 || fstat(descriptor.get(), &status) != 0) {
            add(0, u"it cannot be read: " + host::fromUtf8(std::generic_category().message(errno)));
        } else if (!S_ISREG(status.st_mode)) {
            add(0, u"it is no regular file");
        } else if (status.st_size == 0) {
            add(0, u"it is empty");
        } else {
            read(descriptor.get());
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

    void read(int descriptor) {
        const std::unique_ptr<xmlTextReader, ReaderDeleter> reader(
            xmlReaderForFd(descriptor, nullptr, nullptr, XML_PARSE_NONET));
        if (!reader)
            throw std::bad_alloc();
        xmlTextReaderSetStructuredErrorHandler(reader.get(), noteError, this);
        int result = 0;
        while ((result = xmlTextReaderRead(reader.get())) == 1) {
            if (xmlTextReaderNodeType(reader.get()) == XML_READER_TYPE_ELEMENT)
                checkElement(reader.get());
        }
        if (result != 0 && !hasError_)
            add(xmlTextReaderGetParserLineNumber(reader.get()), u"it is no well-formed XML");
    }

    /// XML takes more than metadata does: the attributes of a document whose type declares entities, for example.
    void checkElement(xmlTextReader* reader) {
        const int line = xmlTextReaderGetParserLineNumber(reader);
        while (xmlTextReaderMoveToNextAttribute(reader) == 1) {
            const std::u16string key = host::XmlText::toUtf16(xmlTextReaderConstName(reader));
            if (!pm::isValidKey(key))
                add(line, u"the attribute name \"" + key + u"\" is none that metadata can hold");
            if (!pm::isValidAttribute(host::XmlText::toUtf16(xmlTextReaderConstValue(reader))))
                add(line, u"the value of the attribute \"" + key + u"\" is none that metadata can hold");
        }
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
