// The disk form. In the metadata folder:
//
//     Project.xml                     <Project MetadataType="fixedPath"/>, with a <Node> if the root path has a node
//     Folder=src.xml                  the file of the path Folder:src
//     Folder=src/File=main.c.xml      the file of the path Folder:src|File:main.c
//
// NodeFileName.hpp says how names are made, PathXml.hpp what an element "Path" holds. Here it has one attribute more,
// the rank among its siblings (Rank.hpp); siblings of equal rank, which come about when changes of two people are
// merged, are ordered by their elements. The content is the truth: a file whose name is not the one of its element is
// damaged. Every existing path has a file. Other files in the folder are none of the store's business.

#include "stores/fixed_path/PathFiles.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <utility>

#include "host/FileUtils.hpp"
#include "project/metadata/CoreFile.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "stores/common/PathXml.hpp"
#include "stores/fixed_path/NodeFileName.hpp"

namespace stores::fixed_path {

using host::Path;
using project::metadata::MetadataNode;
using project::metadata::MetadataNodeSpecification;
using project::metadata::MetadataPath;
using project::metadata::MetadataReadFailure;
using project::metadata::PathElement;
using project::metadata::raise;

const std::u16string fixedPathName = u"fixedPath";

namespace {

const std::u16string rankKey = u"Rank";

/// A symbolic link to a folder does not count: nothing outside the metadata folder is touched.
bool isFolder(const Path& path) {
    struct stat status {};
    return lstat(path.accessName().c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool isBefore(const PathFilePtr& a, const PathFilePtr& b) {
    return a->rank != b->rank ? a->rank < b->rank : a->element < b->element;
}

}  // namespace

PathFiles::PathFiles(Path folder)
    : folder_(std::move(folder)), coreFile_(folder_ / project::metadata::coreFileName()) {}

Path PathFiles::getFile(const MetadataPath& path) const {
    if (path.getPath().empty())
        return coreFile_;
    Path file = folder_;
    for (const PathElement& element : path.getPath()) {
        const bool isLeaf = &element == &path.getPath().back();
        file /= isLeaf ? nodeFileName(element) : nodeFolderName(element);
    }
    return file;
}

Path PathFiles::getChildFolder(const MetadataPath& path) const {
    Path folder = folder_;
    for (const PathElement& element : path.getPath())
        folder /= nodeFolderName(element);
    return folder;
}

PathFilePtr PathFiles::read(const Path& file) const {
    const auto version = getFileVersion(file);
    if (!version) {
        cache_.erase(file.text());
        return nullptr;
    }
    const auto cached = cache_.find(file.text());
    if (cached != cache_.end() && cached->second.version == *version)
        return cached->second.content;
    PathFilePtr content = parse(file);
    cache_.insert_or_assign(file.text(), CacheEntry{*version, content});
    return content;
}

PathFilePtr PathFiles::parse(const Path& file) const {
    const auto xml = project::metadata::readFromFile(file);
    if (file == coreFile_)
        return std::make_shared<PathFile>(PathFile{{u"", u""}, {}, getNode(*xml, file)});

    const PathElement element = getPathElement(*xml, file);
    const std::u16string expectedName = nodeFileName(element);
    if (file.fileName().text() != expectedName) {
        raise<MetadataReadFailure>(
            file.text(),
            u"its name does not fit its content, which belongs into a file named \"" + expectedName + u"\"");
    }
    const std::u16string& rank = xml->get(rankKey);
    if (!isRank(rank))
        raise<MetadataReadFailure>(file.text(), u"\"" + rank + u"\" is no valid " + rankKey);
    return std::make_shared<PathFile>(PathFile{element, rank, getNode(*xml, file)});
}

std::vector<PathFilePtr> PathFiles::readChildren(const Path& childFolder) const {
    std::vector<PathFilePtr> children;
    if (!host::FileUtils::existNoExcept(childFolder))
        return children;
    for (const Path& file : project::metadata::listChildFiles(childFolder)) {
        if (!isNodeFile(file))
            continue;
        // Another process may have removed it since.
        if (PathFilePtr child = read(file))
            children.push_back(std::move(child));
    }
    std::sort(children.begin(), children.end(), isBefore);
    return children;
}

std::vector<Path> PathFiles::list(const Path& childFolder) const {
    std::vector<Path> files;
    std::vector<Path> folders{childFolder};
    while (!folders.empty()) {
        const Path folder = std::move(folders.back());
        folders.pop_back();
        if (!host::FileUtils::existNoExcept(folder))
            continue;
        for (Path& entry : project::metadata::listChildFiles(folder)) {
            if (isNodeFile(entry))
                files.push_back(std::move(entry));
            else if (isNodeFolder(entry) && isFolder(entry))
                folders.push_back(std::move(entry));
        }
    }
    return files;
}

std::unique_ptr<MetadataNode> toXml(const PathFile& content, bool isRoot) {
    auto xml = std::make_unique<MetadataNodeSpecification>(isRoot ? projectElementName : pathElementName);
    if (isRoot) {
        xml->put(project::metadata::metadataTypeKey(), fixedPathName);
    } else {
        putPathElement(*xml, content.element);
        xml->put(rankKey, content.rank);
    }
    putNode(*xml, content.node.get());
    return xml;
}

}  // namespace stores::fixed_path
