#include "store_testing/ScratchProject.hpp"

#include <algorithm>
#include <chrono>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "host/FileSystem.hpp"
#include "host/Text.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"

namespace project::store_testing {

namespace fs = std::filesystem;

namespace {

std::string quoted(const std::string& text) {
    return '"' + text + '"';
}

/// A store that answers a path as its own child, or a relative one, would keep those for ever who walk its tree.
void requireStep(const MetadataPath& parent, const MetadataPath& child) {
    require(child.getPath().size() == parent.getPath().size() + 1 && child.getParent() == parent,
            "a child of " + quoted(describe({parent})) + ": expected a full path with one more step, found " +
                quoted(describe({child})));
}

std::string outline(const MetadataManager& store, const MetadataPath& parent, const std::string& prefix) {
    std::string text;
    for (const MetadataPath& child : store.getChildren(parent)) {
        requireStep(parent, child);
        const std::string name = prefix + host::toUtf8(child.getLeaf().getLocation());
        const auto found = store.getNode(child);
        text += (text.empty() ? "" : " ") + name + (found ? "(" + host::toUtf8(found->get(u"Value")) + ")" : "");
        const std::string below = outline(store, child, name + "/");
        text += (below.empty() ? "" : " ") + below;
    }
    return text;
}

}  // namespace

ScratchProject::ScratchProject(FactoryMaker makeFactory)
    : makeFactory_(std::move(makeFactory)),
      scratch_(host::FileSystem::temp_directory_name().text(), u"store-contract-", u"") {}

host::Path ScratchProject::root(const std::string& name) const {
    host::Path root = folder() / host::Path::fromAccessName(name);
    host::FileSystem::create_directories(root);
    return root;
}

host::Path ScratchProject::metadataFolder(const std::string& name) const {
    return metadata::ProjectMetadataLocation(root(name)).getDirectory();
}

std::shared_ptr<metadata::MetadataManagerFactory> ScratchProject::factory() const {
    auto factory = makeFactory_();
    require(factory != nullptr, "there is no factory");
    return factory;
}

std::unique_ptr<MetadataManager> ScratchProject::open(const std::string& name) const {
    auto store = factory()->createManager(root(name));
    require(store != nullptr, "createManager: expected a store, found null");
    return store;
}

MetadataPath path(const std::string& text) {
    std::vector<PathElement> elements;
    std::istringstream stream(text);
    for (std::string location; std::getline(stream, location, '/');)
        elements.emplace_back(u"t", host::fromUtf8(location));
    return MetadataPath(elements);
}

std::vector<MetadataPath> paths(const std::string& texts) {
    std::vector<MetadataPath> all;
    std::istringstream stream(texts);
    for (std::string text; stream >> text;)
        all.push_back(text == "/" ? MetadataPath() : path(text));
    return all;
}

std::shared_ptr<MetadataNode> node(const std::string& value) {
    auto result = std::make_shared<MetadataNodeSpecification>();
    result->put(u"Value", host::fromUtf8(value));
    return result;
}

std::string describe(const MetadataNode* node) {
    if (!node)
        return "no node";
    std::string text = "<" + host::toUtf8(node->getName());
    for (const std::u16string& key : node->getAttributeKeys())
        text += " " + host::toUtf8(key) + "='" + host::toUtf8(node->get(key)) + "'";
    for (const auto& child : node->getChildNodes())
        text += describe(child.get());
    return text + ">";
}

std::string describe(const std::vector<MetadataPath>& all) {
    std::string text;
    for (const MetadataPath& each : all) {
        text += text.empty() ? "" : " ";
        const char* separator = "";
        for (const PathElement& element : each.getPath()) {
            text += separator + host::toUtf8(element.getLocation());
            separator = "/";
        }
        if (each.getPath().empty())
            text += '/';
    }
    return text;
}

std::vector<std::pair<MetadataPath, std::string>> read(const MetadataManager& store) {
    std::vector<std::pair<MetadataPath, std::string>> content;
    std::deque<MetadataPath> queue(1);
    while (!queue.empty()) {
        const MetadataPath current = queue.front();
        queue.pop_front();
        const auto found = store.getNode(current);
        const std::string name = quoted(host::toUtf8(current.string()));
        require(store.hasNode(current) == (found != nullptr), "hasNode and getNode contradict each other at " + name);
        require(store.hasPath(current), "getChildren names " + name + ", and hasPath does not know it");
        content.emplace_back(current, describe(found.get()));
        for (const MetadataPath& child : store.getChildren(current)) {
            requireStep(current, child);
            queue.push_back(child);
        }
    }
    return content;
}

void require(bool holds, const std::string& breach) {
    if (!holds)
        throw Breach(breach);
}

void requireEqual(const std::string& what, const std::string& expected, const std::string& found) {
    require(found == expected, what + ": expected " + quoted(expected) + ", found " + quoted(found));
}

void requireContent(const std::string& when, const MetadataManager& store, const std::string& expected) {
    requireEqual("the content " + when, expected, outline(store, MetadataPath(), ""));
}

std::string describeCurrentException() {
    try {
        throw;
    } catch (const std::exception& error) {
        return quoted(error.what());
    } catch (...) {
        return "one of an unknown type";
    }
}

namespace {

/// Files that are written within one tick of a coarse clock may have one time. Waits until a file that is written now
/// has a later one than `time`, but not for files with times in the future.
void waitUntilLater(fs::file_time_type time) {
    const host::TempDirGuard scratch(host::FileSystem::temp_directory_name().text(), u"store-contract-", u"");
    const fs::path probe = fs::path(host::Path(scratch.getDirectoryName()).accessName()) / "probe";
    const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    do
        std::ofstream(probe) << '.';
    while (fs::last_write_time(probe) <= time && std::chrono::steady_clock::now() < patience);
}

}  // namespace

std::map<std::string, std::string> readFiles(const host::Path& folder) {
    const fs::path top = folder.accessName();
    std::map<std::string, std::string> files;
    fs::file_time_type newest = fs::file_time_type::min();
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(top)) {
        const std::string name = entry.path().lexically_relative(top);
        if (entry.is_directory()) {
            files[name + '/'];
            continue;
        }
        std::ifstream stream(entry.path(), std::ios::binary);
        files[name] = std::to_string(entry.last_write_time().time_since_epoch().count()) + '\n' +
                      std::string(std::istreambuf_iterator<char>(stream), {});
        newest = std::max(newest, entry.last_write_time());
    }
    waitUntilLater(newest);
    return files;
}

void requireSameFiles(const std::string& when, const std::map<std::string, std::string>& expected,
                      const std::map<std::string, std::string>& found) {
    for (const auto& [name, content] : expected) {
        const auto file = found.find(name);
        require(file != found.end(), when + ": expected the file " + quoted(name) + ", found none");
        require(file->second == content,
                when + ": expected the file " + quoted(name) + " as it was, found that it was written");
    }
    for (const auto& [name, content] : found)
        require(expected.count(name) == 1, when + ": expected no new file, found " + quoted(name));
}

}  // namespace project::store_testing
