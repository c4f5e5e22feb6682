// The file format: one XML 1.0 document, in UTF-8, per tree.
//
//     <?xml version="1.0" encoding="UTF-8"?>
//     <Example Name="A &amp; B" Version="2">
//         <Info/>
//     </Example>
//
// One element per node, named after it; one attribute per attribute, in the order of `getAttributeKeys()`, in double
// quotes, with & < > " and tab, line feed and carriage return escaped as libxml2 does; child elements in the order of
// the child nodes. Four spaces per level, an element without children as an empty-element tag, a line break after each
// end tag; with the compact ending, none after the root's. Text, comments, CDATA and processing instructions are not
// written, and ignored when a file is read.

#include "project/metadata/MetadataXml.hpp"

#include <array>

#include <libxml/parser.h>

#include "host/FileSystem.hpp"
#include "host/FileUtils.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/detail/TreeFormatter.hpp"
#include "project/metadata/detail/TreeParser.hpp"

namespace project::metadata {

namespace {

/// libxml2 wants to be initialised once, before any thread uses it.
void initialiseXml() {
    static const bool initialised = (xmlInitParser(), true);
    static_cast<void>(initialised);
}

/// Keeps libxml2 from printing on this thread: failures of streams go past its parser options. What a host has set
/// comes back at the end.
class SilentXmlErrors {
public:
    SilentXmlErrors() : handler_(xmlStructuredError), context_(xmlStructuredErrorContext) {
        xmlSetStructuredErrorFunc(nullptr, [](void* /*context*/, xmlError* /*error*/) {});
    }
    ~SilentXmlErrors() { xmlSetStructuredErrorFunc(context_, handler_); }

    SilentXmlErrors(const SilentXmlErrors&) = delete;
    SilentXmlErrors& operator=(const SilentXmlErrors&) = delete;

private:
    xmlStructuredErrorFunc handler_;
    void* context_;
};

/// Whether the system calls would take the name of `file` to end too early, and so mean another file.
bool isCutOff(const host::Path& file) {
    return file.text().find(u'\0') != std::u16string::npos;
}

bool tryToWrite(const MetadataNode& node, const host::Path& file, bool compactEnding) {
    if (isCutOff(file))
        return false;
    host::OutputFileStream stream;
    // Unbuffered: whole blocks come, and a full disk must show in the call that writes them.
    stream.rdbuf()->pubsetbuf(nullptr, 0);
    stream.open(file.accessName(), std::ios::out | std::ios::trunc | std::ios::binary);
    detail::TreeFormatter(stream).write(node, compactEnding);
    stream.close();  // sets the fail state itself if closing fails
    return !stream.fail();
}

void makeWritable(const host::Path& path) {
    handleReadOnlyFile(host::FileUtils::followLink(path));
    if (host::FileUtils::isReadOnlyNoExcept(path))
        raise<ReadOnlyMetadataFailure>(path.text());
}

std::unique_ptr<MetadataNode> read(const host::Path& file, detail::Extent extent) {
    initialiseXml();
    if (isCutOff(file))
        raise<MetadataReadFailure>(file.text(), getCauseMessage());
    const SilentXmlErrors silent;
    host::InputFileStream stream(file.accessName(), std::ios::in | std::ios::binary);
    detail::TreeParser parser(extent);
    std::array<char, 32 * 1024> block;
    bool wantsMore = stream.good();
    while (wantsMore && stream.read(block.data(), block.size()).gcount() > 0)
        wantsMore = parser.parse({block.data(), static_cast<std::size_t>(stream.gcount())});
    // The end of the file is no error of reading; what cannot be read is.
    const bool isReadFailure = stream.bad() || (stream.fail() && !stream.eof());
    std::unique_ptr<MetadataNode> root = isReadFailure ? nullptr : parser.finish();
    if (!root)
        raise<MetadataReadFailure>(file.text(), getCauseMessage());
    return root;
}

}  // namespace

void writeToFile(const MetadataNode& node, const host::Path& file, bool compactEnding) {
    const host::Path folder = getParentFolder(file);
    if (!host::FileUtils::existNoExcept(folder))
        makeFolder(folder);
    if (tryToWrite(node, file, compactEnding))
        return;

    const host::Path& obstacle = host::FileUtils::existNoExcept(file) ? file : folder;
    if (host::FileUtils::isReadOnlyNoExcept(obstacle)) {
        makeWritable(obstacle);
        if (tryToWrite(node, file, compactEnding))
            return;
    }
    raise<MetadataWriteFailure>(file.text(), getCauseMessage());
}

std::unique_ptr<MetadataNode> readFromFile(const host::Path& file) {
    return read(file, detail::Extent::wholeTree);
}

std::unique_ptr<MetadataNode> readRootFromFile(const host::Path& file) {
    return read(file, detail::Extent::rootOnly);
}

}  // namespace project::metadata
