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

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <exception>
#include <filesystem>
#include <new>
#include <optional>
#include <system_error>
#include <utility>

#include <libxml/parser.h>

#include "host/FileSystem.hpp"
#include "host/FileUtils.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/SharedNode.hpp"
#include "project/metadata/detail/PlainParser.hpp"
#include "project/metadata/detail/SilentXml.hpp"
#include "project/metadata/detail/TextReader.hpp"
#include "project/metadata/detail/TreeFormatter.hpp"

namespace project::metadata {

namespace {

/// libxml2 wants to be initialised once, before any thread uses it.
void initialiseXml() {
    static const bool initialised = (xmlInitParser(), true);
    static_cast<void>(initialised);
}

/// Whether the system calls would take the name of `file` to end too early, and so mean another file.
bool isCutOff(const host::Path& file) {
    return file.text().find(u'\0') != std::u16string::npos;
}

/// @return null if `file` cannot be written; otherwise whether it needs proof
template <class Tree>
std::optional<bool> tryToWrite(const Tree& tree, const host::Path& file, bool compactEnding) {
    if (isCutOff(file))
        return std::nullopt;
    host::OutputFileStream stream;
    // Unbuffered: whole blocks come, and a full disk must show in the call that writes them.
    stream.rdbuf()->pubsetbuf(nullptr, 0);
    stream.open(file.accessName(), std::ios::out | std::ios::trunc | std::ios::binary);
    if (!stream)
        return std::nullopt;
    detail::TreeFormatter formatter(stream);
    try {
        formatter.write(tree, compactEnding);
    } catch (const detail::WriteStopped& stopped) {
        stream.close();
        errno = stopped.reason;
        return std::nullopt;
    }
    stream.close();  // sets the fail state itself if closing fails
    return stream.fail() ? std::nullopt : std::optional(formatter.needsProof());
}

void makeWritable(const host::Path& path) {
    handleReadOnlyFile(host::FileUtils::followLink(path));
    if (host::FileUtils::isReadOnlyNoExcept(path))
        raise<ReadOnlyMetadataFailure>(path.text());
}

std::unique_ptr<MetadataNode> readEitherWay(const host::Path& file, detail::Extent extent, LeftOut* leftOut) {
    host::InputFileStream stream(file.accessName(), std::ios::in | std::ios::binary);
    std::error_code code;
    // What is no regular file can be read only once.
    if (std::filesystem::is_regular_file(file.accessName(), code)) {
        const auto rest = leftOut ? detail::Rest::isObstacle : detail::Rest::isPassedOver;
        detail::PlainDocument document = detail::parsePlainDocument(stream, extent, rest);
        if (document.obstacle == detail::Obstacle::none)
            return std::move(document.root);
        stream.clear();
        stream.seekg(0);
    }
    return detail::readWithTextReader(stream, file, extent, leftOut);
}

/// @param leftOut as for the text reader
std::unique_ptr<MetadataNode> read(const host::Path& file, detail::Extent extent, LeftOut* leftOut = nullptr) {
    initialiseXml();
    if (isCutOff(file))
        raise<MetadataReadFailure>(file.text(), getCauseMessage());
    const detail::SilentXml libxml;
    std::unique_ptr<MetadataNode> tree;
    std::exception_ptr failure;
    try {
        tree = readEitherWay(file, extent, leftOut);
    } catch (...) {
        failure = std::current_exception();
    }
    // Then neither a tree nor an error says what is in the file.
    if (libxml.ranOutOfMemory())
        throw std::bad_alloc();
    if (failure)
        std::rethrow_exception(failure);
    return tree;
}

/// @return whether it needs proof
template <class Tree>
bool write(const Tree& tree, const host::Path& file, bool compactEnding) {
    std::optional<bool> needsProof;
    int reason = 0;
    const auto attempt = [&] {
        needsProof = tryToWrite(tree, file, compactEnding);
        reason = errno;
    };
    attempt();
    if (needsProof)
        return *needsProof;
    const host::Path folder = getParentFolder(file);
    if (!host::FileUtils::existNoExcept(folder)) {
        makeFolder(folder);
        attempt();
    }
    if (!needsProof) {
        const host::Path& obstacle = host::FileUtils::existNoExcept(file) ? file : folder;
        if (host::FileUtils::isReadOnlyNoExcept(obstacle)) {
            makeWritable(obstacle);
            attempt();
        }
    }
    if (needsProof)
        return *needsProof;
    errno = reason;  // and not why something was not found since
    raise<MetadataWriteFailure>(file.text(), getCauseMessage());
}

}  // namespace

void writeToFile(const MetadataNode& node, const host::Path& file, bool compactEnding) {
    write(node, file, compactEnding);
}

bool writeToFile(const std::function<void(XmlSink& sink)>& tell, const host::Path& file, bool compactEnding) {
    return write(tell, file, compactEnding);
}

bool needsProof(const MetadataNode& tree) {
    const MetadataNode& node = getShared(tree);
    bool hasDoubtfulName = detail::isDoubtfulName(node.getName());
    std::size_t tagSize = node.getName().size();
    visitAttributes(node, [&](const auto& key, const auto& value) {
        hasDoubtfulName = hasDoubtfulName || detail::isDoubtfulKey(key);
        tagSize += key.size() + value.size();
    });
    const auto& children = node.getChildNodes();
    return hasDoubtfulName || tagSize > detail::longTag ||
           std::any_of(children.begin(), children.end(), [](const auto& child) { return needsProof(*child); });
}

std::unique_ptr<MetadataNode> readFromFile(const host::Path& file) {
    return read(file, detail::Extent::wholeTree);
}

std::unique_ptr<MetadataNode> readFromFile(const host::Path& file, LeftOut& leftOut) {
    return read(file, detail::Extent::wholeTree, &leftOut);
}

std::unique_ptr<MetadataNode> readPlainBytes(std::string_view bytes) {
    initialiseXml();
    const detail::SilentXml libxml;
    detail::PlainDocument document = detail::parsePlainDocument(bytes);
    if (libxml.ranOutOfMemory())
        throw std::bad_alloc();
    return std::move(document.root);
}

std::unique_ptr<MetadataNode> readRootFromFile(const host::Path& file) {
    return read(file, detail::Extent::rootOnly);
}

}  // namespace project::metadata
