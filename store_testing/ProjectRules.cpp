// A project on disk: when it is made, whose it is, and what is written.

#include <chrono>
#include <filesystem>
#include <thread>

#include "host/FileSystem.hpp"
#include "host/Text.hpp"
#include "project/metadata/CoreMetadataHandler.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataRoots.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"
#include "store_testing/RuleGroups.hpp"
#include "store_testing/ScratchProject.hpp"

namespace project::store_testing {

namespace {

void factoryNamesItself(const ScratchProject& project) {
    const auto isOneLine = [](const std::u16string& text) {
        return !text.empty() && text.find_first_of(u"\n\r") == std::u16string::npos;
    };
    const auto factory = project.factory();
    for (const std::u16string& text : {factory->getName(), factory->getDescription()})
        require(isOneLine(text), "expected one line of text, found \"" + host::toUtf8(text) + '"');
}

void readingWritesNothing(const ScratchProject& project) {
    const auto readAll = [&] {
        const auto store = project.open();
        read(*store);
        store->getChildren(path("none"));
        project.factory()->canManage(project.root());
    };
    readAll();
    project.open()->removePaths(paths("none /"));
    for (const MetadataPath& each : paths("none /"))
        project.open()->removeNode(each);
    requireSameFiles("in a new folder", {}, readFiles(project.root()));

    project.open()->setNodes({{path("a"), node("1")}, {path("a/b"), node("2")}});
    const auto before = readFiles(project.root());
    readAll();
    requireSameFiles("in a project", before, readFiles(project.root()));
}

void firstChangeMakesTheProject(const ScratchProject& project) {
    const std::map<std::string, void (*)(MetadataManager&)> changes{
        {"setNode", [](MetadataManager& store) { store.setNode(path("a"), *node("1")); }},
        {"addPath", [](MetadataManager& store) { store.addPath(path("a")); }},
        {"setPaths", [](MetadataManager& store) { store.setPaths({MetadataPath()}); }}};
    const std::u16string name = project.factory()->getName();
    for (const auto& [change, make] : changes) {
        make(*project.open(change));
        const host::Path root = project.root(change);
        const auto type = metadata::ProjectMetadataLocation(root).getMetadataType();
        requireEqual("the type in the core file after " + change, host::toUtf8(name),
                     type ? host::toUtf8(*type) : "(none)");
        require(project.factory()->canManage(root), "canManage after " + change + ": expected true, found false");
    }
}

void leavesOtherProjectsAlone(const ScratchProject& project) {
    require(!project.factory()->canManage(project.root()), "canManage of a new folder: expected false, found true");
    metadata::CoreMetadataHandler(project.metadataFolder(), project.factory()->getName() + u" of another kind", u"P")
        .createCoreMetadata();
    const auto before = readFiles(project.root());
    require(!project.factory()->canManage(project.root()),
            "canManage of a project of another kind: expected false, found true");
    requireThrows<metadata::MetadataReadFailure>("opening a project of another kind", "MetadataReadFailure",
                                                 [&] { project.open(); });
    requireSameFiles("in a project of another kind", before, readFiles(project.root()));
}

void usesTheFolderInUse(const ScratchProject& project) {
    project.open()->setNodes({{path("a"), node("1")}, {path("b/c"), node("1")}});
    for (const std::u16string& name : metadata::getSupportedRoots()) {
        const host::Path folder = project.root() / host::Path(name);
        const host::Path last = project.metadataFolder();
        if (folder == last)
            continue;
        const std::string what = "with the metadata folder \"" + folder.fileName().accessName() + '"';
        host::FileSystem::create_directories(folder.parentPath());
        std::filesystem::rename(last.accessName(), folder.accessName());
        requireContent(what, *project.open(), "a(1) b b/c(1)");
        project.open()->setNode(path("b/c"), *node("2"));
        requireContent(what + ", after a change", *project.open(), "a(1) b b/c(2)");
        require(!host::FileSystem::exists(last / u"Project.xml"),
                what + ": expected no file in another folder, found the core file");
        project.open()->setNode(path("b/c"), *node("1"));
    }
}

void convertedProjectIsNotOverwritten(const ScratchProject& project) {
    const std::map<std::string, void (*)(MetadataManager&)> changes{
        {"setNode", [](MetadataManager& store) { store.setNode(path("a"), *node("2")); }},
        {"addPath", [](MetadataManager& store) { store.addPath(path("b")); }},
        {"setPaths", [](MetadataManager& store) { store.setPaths(paths("b")); }}};
    for (const auto& [what, change] : changes) {
        const auto store = project.open(what);
        store->setNode(path("a"), *node("1"));
        const host::Path folder = project.metadataFolder(what);
        host::FileSystem::remove_all(folder);
        metadata::CoreMetadataHandler(folder, project.factory()->getName() + u" of another kind", u"P")
            .createCoreMetadata();
        const auto before = readFiles(project.root(what));
        requireThrows<exception::ProjectException>(what + " in a project that became one of another kind",
                                                   "of the library", [&, &make = change] { make(*store); });
        requireSameFiles("after " + what + " in a project that became one of another kind", before,
                         readFiles(project.root(what)));
    }
}

/// What would make metadata beside those in `folder`, by a `store` for another folder of the project, is refused. A
/// store may read for a moment from a folder that was renamed, since looking up names for each answer costs more than
/// holding on to the files; it may not change anything there.
void requireNoSecond(const std::string& what, const host::Path& folder, MetadataManager& store,
                     const ScratchProject& project) {
    const auto before = readFiles(folder);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));  // the moment, as the rule allows it
    read(store);
    requireThrows<exception::ProjectException>("addPath " + what, "of the library", [&] { store.addPath(path("b")); });
    requireThrows<exception::ProjectException>("setNode " + what, "of the library",
                                               [&] { store.setNode(path("c"), *node("2")); });
    requireSameFiles("after changes " + what, before, readFiles(folder));
    requireEqual("the metadata folder after changes " + what, folder.accessName(),
                 project.metadataFolder().accessName());
}

void hidesNoOtherMetadata(const ScratchProject& project) {
    const host::Path first = project.metadataFolder();
    for (const std::u16string& name : metadata::getSupportedRoots()) {
        const host::Path folder = project.root() / host::Path(name);
        if (folder == first)
            continue;
        const std::string quotedName = '"' + folder.fileName().accessName() + '"';
        const auto early = project.open();
        host::FileSystem::create_directories(folder.parentPath());
        project.open()->setNode(path("a"), *node("1"));
        const auto other = project.open();
        std::filesystem::rename(first.accessName(), folder.accessName());
        requireNoSecond("where somebody has made " + quotedName, folder, *early, project);
        requireNoSecond("once the folder is renamed to " + quotedName, folder, *other, project);
        const auto last = project.open();
        static_cast<void>(last->getNode(path("a")));
        host::FileSystem::remove_all(first);
        std::filesystem::rename(folder.accessName(), first.accessName());
        requireNoSecond("once the folder is renamed from " + quotedName, first, *last, project);
        host::FileSystem::remove_all(first);
        host::FileSystem::remove_all(folder);
    }
}

/// A node with everything that a node may have.
std::shared_ptr<MetadataNode> richNode() {
    auto rich = std::make_shared<MetadataNodeSpecification>(u"Rich");
    rich->put(u"empty", u"");
    rich->put(u"markup", u"<a b=\"c\">&amp;]]>'");
    rich->put(u"space", u" \t\r\n  x \n");
    rich->put(u"beyond", u"\u00E4\u4E2D\U0001F600");
    MetadataNode& list = rich->createChildNode(u"List");
    for (const char16_t* value : {u"z", u"a", u"z"})
        list.createChildNode(u"Entry").put(u"Value", value);
    list.createChildNode(u"Node").createChildNode(u"Path").createChildNode().createChildNode();
    return rich;
}

void reopenedStoreHasEverything(const ScratchProject& project) {
    {
        const auto store = project.open();
        for (const char* name : {"z", "a", "m", "a/z", "a/a"})
            store->addPath(path(name));
        store->setNode(path("m/rich"), *richNode());
        store->setNode(path("a/a"), *node("1"));
    }
    const auto reopened = project.open();
    requireEqual("the node", describe(richNode().get()), describe(reopened->getNode(path("m/rich")).get()));
    requireContent("after opening anew", *reopened, "z a a/z a/a(1) m m/rich()");
}

void writesOnlyWhatChanges(const ScratchProject& project) {
    const Nodes nodes{{path("a"), node("1")}, {path("a/b"), richNode()}};
    const std::vector<MetadataPath> all = paths("/ a a/b c");
    project.open()->setNodes(nodes);
    project.open()->setPaths(all);
    const auto before = readFiles(project.root());
    {
        const auto store = project.open();
        store->setNodes(nodes);
        store->setNode(path("a"), *node("1"));
        store->addPath(path("c"));
        store->setPaths(all);
        store->removePaths(paths("none a/none"));
        store->removeNode(path("c"));
    }
    requireSameFiles("after changes to the same", before, readFiles(project.root()));
}

}  // namespace

std::vector<Rule> getProjectRules() {
    return {
        {"FactoryNamesItself", "A factory has a name and a description, each a text of one line.", factoryNamesItself},
        {"ReadingWritesNothing",
         "Opening a store, reading it and removing what is not there writes nothing, in a new folder or in a project.",
         readingWritesNothing},
        {"FirstChangeMakesTheProject",
         "The first change, even a `setPaths` with only the root path, makes the core file, which names the factory as "
         "its type, and from then on `canManage` is true.",
         firstChangeMakesTheProject},
        {"LeavesOtherProjectsAlone",
         "`canManage` is false for a folder without metadata and for a project of another kind, and opening the latter "
         "is a `MetadataReadFailure` that leaves it as it is.",
         leavesOtherProjectsAlone},
        {"UsesTheFolderInUse",
         "A store keeps a project in the metadata folder that it has, whichever of the supported ones that is.",
         usesTheFolderInUse},
        {"ConvertedProjectIsNotOverwritten",
         "A project that became one of another kind while a store was open is not changed by it: what would change "
         "it is an error of the library.",
         convertedProjectIsNotOverwritten},
        {"HidesNoOtherMetadata",
         "While a project has its metadata in one metadata folder, a store for another one, be it open since before "
         "that was made or renamed, does not make a second there: what would is an error of the library. That a folder "
         "was renamed by hand it knows within ten milliseconds.",
         hidesNoOtherMetadata},
        {"ReopenedStoreHasEverything",
         "A store that is opened anew has every path in its order and every node with its attributes, its children and "
         "every character of its values.",
         reopenedStoreHasEverything},
        {"WritesOnlyWhatChanges", "A change that changes nothing writes no file and touches no modification time.",
         writesOnlyWhatChanges},
    };
}

}  // namespace project::store_testing
