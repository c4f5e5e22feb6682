// The XML form of a path that all files share: an element <Path> with the attributes "Type" and "Location", or
// "EscapedType" and "EscapedLocation" where XML cannot hold the text, with the node of the path in an element <Node>
// and the paths below it in elements <Path>. A file of a single path has the attribute "Rank" besides.

#include "operations/MetadataTree.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <set>
#include <utility>

#include "host/FileSystem.hpp"
#include "host/TempDirGuard.hpp"
#include "host/Text.hpp"
#include "operations/Errors.hpp"
#include "operations/Progress.hpp"
#include "operations/Project.hpp"
#include "project/metadata/CoreFile.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/MetadataXml.hpp"

namespace operations {

namespace pm = project::metadata;

namespace {

const std::u16string projectName = u"Project";
const std::u16string pathName = u"Path";
const std::u16string nodeName = u"Node";

std::u16string unescape(const std::u16string& escaped) {
    std::u16string text;
    for (std::size_t i = 0; i < escaped.size(); ++i) {
        const std::string digits = host::toUtf8(escaped.substr(i, 6));
        unsigned unit = 0;
        if (digits.size() == 6 && digits.compare(0, 2, "\\u") == 0 &&
            std::from_chars(digits.data() + 2, digits.data() + 6, unit, 16).ptr == digits.data() + 6) {
            text += static_cast<char16_t>(unit);
            i += 5;
        } else {
            if (escaped.compare(i, 2, u"\\\\") == 0)
                ++i;
            text += escaped[i];
        }
    }
    return text;
}

std::u16string getText(const pm::MetadataNode& xml, const std::u16string& key) {
    const std::u16string& escaped = xml.get(u"Escaped" + key);
    return escaped.empty() ? xml.get(key) : unescape(escaped);
}

[[noreturn]] void raiseDamage(const host::Path& file, const std::string& problem) {
    throw OperationError(ErrorKind::failure, quoted(file) + " is damaged: " + problem);
}

/// What an element <Path> or <Project> holds.
PathTree fromXml(const pm::MetadataNode& xml, const host::Path& file) {
    PathTree tree;
    tree.step = {getText(xml, u"Type"), getText(xml, u"Location")};
    for (const std::u16string& key : xml.getAttributeKeys())
        tree.attributes[key] = xml.get(key);
    std::set<pm::PathElement> steps;
    for (const auto& child : xml.getChildNodes()) {
        if (child->getName() == pathName) {
            tree.children.push_back(fromXml(*child, file));
            if (!steps.insert(tree.children.back().step).second)
                raiseDamage(file, "a path stands in it twice");
        } else if (child->getName() == nodeName && !tree.node && child->getChildNodes().size() == 1) {
            tree.node = child->getChildNodes().front();
        } else {
            raiseDamage(file, "it holds <" + host::toUtf8(child->getName()) + "> where no such element belongs");
        }
    }
    return tree;
}

void putInto(pm::MetadataNode& xml, const PathTree& tree) {
    for (const auto& [key, value] : tree.attributes)
        xml.put(key, value);
    if (tree.node)
        xml.createChildNode(nodeName).createChildNode(tree.node->getName()).copy(*tree.node);
    for (const PathTree& child : tree.children)
        putInto(xml.createChildNode(pathName), child);
}

MetadataTree readFile(const host::Path& file) {
    MetadataTree tree;
    std::shared_ptr<pm::MetadataNode> xml = pm::readFromFile(file);
    const bool isPath =
        xml->getName() == pathName && (!getText(*xml, u"Type").empty() || !getText(*xml, u"Location").empty());
    if (isPath || (xml->getName() == projectName && !xml->get(pm::metadataTypeKey()).empty())) {
        tree.form = isPath ? TreeForm::path : TreeForm::core;
        tree.root = fromXml(*xml, file);
    } else {
        tree.form = TreeForm::node;
        tree.root.node = std::move(xml);
    }
    return tree;
}

void fill(PathTree& tree, const pm::MetadataManager& store, const pm::MetadataPath& path, Progress& progress) {
    progress.advance();
    tree.node = store.getNode(path);
    for (const pm::MetadataPath& child : store.getChildren(path)) {
        tree.children.emplace_back().step = child.getPath().back();
        fill(tree.children.back(), store, child, progress);
    }
}

/// @param root for the error sentence
MetadataTree readStore(const pm::MetadataManager& store, const host::Path& root, Progress& progress) {
    if (!findDamage(store).empty()) {
        throw OperationError(ErrorKind::failure, "The metadata of " + quoted(root) +
                                                     " is damaged, and what cannot be read would pass for removed; see "
                                                     "\"project-metadata check\"");
    }
    MetadataTree tree;
    tree.form = TreeForm::project;
    fill(tree.root, store, {}, progress);
    return tree;
}

std::string nameOfWork(const host::Path& place) {
    return "Reading " + quoted(place);
}

bool endsWithLineBreak(const host::Path& file) {
    std::ifstream stream(file.accessName(), std::ios::binary | std::ios::ate);
    if (!stream || stream.tellg() == std::streamoff(0))
        return true;
    return stream.seekg(-1, std::ios::end).get() == '\n';
}

}  // namespace

pm::MetadataPath MetadataTree::rootPath() const {
    return form == TreeForm::path ? pm::MetadataPath({root.step}) : pm::MetadataPath();
}

MetadataTree readTree(const host::Path& place, Observer& observer) {
    struct stat status {};
    if (stat(place.accessName().c_str(), &status) != 0)
        throw OperationError(ErrorKind::failure, "There is no file or project " + quoted(place));
    const auto progress = observer.start(nameOfWork(place));
    if (S_ISDIR(status.st_mode))
        return readStore(*openProject(place), place, *progress);
    // Before the first byte of a device or a pipe is waited for.
    if (S_ISREG(status.st_mode) && status.st_size == 0)
        return {};
    return readFile(place);
}

MetadataTree readTree(const pm::MetadataManager& store, const host::Path& root, Observer& observer) {
    return readStore(store, root, *observer.start(nameOfWork(root)));
}

void writeTree(const MetadataTree& tree, const host::Path& file) {
    const host::TempDirGuard scratch(host::FileSystem::temp_directory_name().text(), u"merge-", u"");
    const host::Path written = host::Path(scratch.getDirectoryName()) / u"merged.xml";
    std::unique_ptr<pm::MetadataNode> xml;
    if (tree.form == TreeForm::empty) {
        std::ofstream(written.accessName());
    } else if (tree.form == TreeForm::node) {
        xml = std::make_unique<pm::MetadataNodeSpecification>(*tree.root.node);
    } else {
        xml = std::make_unique<pm::MetadataNodeSpecification>(tree.form == TreeForm::path ? pathName : projectName);
        putInto(*xml, tree.root);
    }
    if (xml)
        pm::writeToFile(*xml, written, !endsWithLineBreak(file));
    struct stat before {};
    if (stat(file.accessName().c_str(), &before) == 0)
        chmod(written.accessName().c_str(), before.st_mode & 07777);
    host::FileSystem::copy_file(written, file, host::CopyOption::overwriteExisting);
}

pm::MetadataPath childPath(const pm::MetadataPath& path, const pm::PathElement& step) {
    std::vector<pm::PathElement> elements = path.getPath();
    elements.push_back(step);
    return pm::MetadataPath(std::move(elements));
}

}  // namespace operations
