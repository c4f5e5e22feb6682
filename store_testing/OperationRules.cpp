// What each operation of a store does.

#include "project/metadata/MetadataCopy.hpp"
#include "store_testing/RuleGroups.hpp"
#include "store_testing/ScratchProject.hpp"

namespace project::store_testing {

namespace {

/// Compares what `store` answers, and what a store that is opened anew does.
void requireContentNowAndLater(const ScratchProject& project, const std::string& when, const MetadataManager& store,
                               const std::string& expected) {
    requireContent(when, store, expected);
    requireContent(when + ", opened anew", *project.open(), expected);
}

/// Those of the paths in `texts` at which `store` has a node, and says so in both ways.
std::string listNodes(const MetadataManager& store, const std::string& texts) {
    std::vector<MetadataPath> found;
    for (const MetadataPath& each : paths(texts)) {
        const bool isThere = store.getNode(each) != nullptr;
        requireEqual("hasNode of \"" + describe({each}) + '"', isThere ? "true" : "false",
                     store.hasNode(each) ? "true" : "false");
        if (isThere)
            found.push_back(each);
    }
    return describe(found);
}

void setNodeReplacesOneNode(const ScratchProject& project) {
    const auto store = project.open();
    store->setNode(path("a"), *node("1"));
    store->setNode(path("b"), *node("2"));
    requireEqual("the paths of a, b and c with nodes, after a and b were set", "a b", listNodes(*store, "a b c"));
    MetadataNodeSpecification other(u"Other");
    other.put(u"Value", u"3");
    store->setNode(path("a"), other);
    requireEqual("the new node", describe(&other), describe(store->getNode(path("a")).get()));
    requireContentNowAndLater(project, "after setNode", *store, "a(3) b(2)");
}

void setNodesSetsEveryNode(const ScratchProject& project) {
    const auto store = project.open();
    store->setNode(path("m"), *node("1"));
    store->setNodes({{path("z"), node("2")}, {path("a/x"), node("3")}, {path("m"), node("4")}, {path("a"), node("5")}});
    requireContentNowAndLater(project, "after setNodes", *store, "m(4) a(5) a/x(3) z(2)");
    store->setNodes({});
    requireContentNowAndLater(project, "after setNodes of nothing", *store, "m(4) a(5) a/x(3) z(2)");
    store->setNodes({{path("a"), nullptr}, {path("n/x"), nullptr}, {path("z"), node("6")}});
    requireContentNowAndLater(project, "after setNodes with entries without a node", *store,
                              "m(4) a a/x(3) z(6) n n/x");
}

void missingAncestorsAreAdded(const ScratchProject& project) {
    const auto store = project.open();
    store->addPath(path("a/b/c"));
    store->setNode(path("z/y"), *node("1"));
    store->addPath(path("a/d/e"));
    requireEqual("the ancestors with nodes", "", listNodes(*store, "a a/b z a/d"));
    requireContentNowAndLater(project, "after adding deep paths", *store, "a a/b a/b/c a/d a/d/e z z/y(1)");
}

void addPathKeepsWhatIsThere(const ScratchProject& project) {
    const auto store = project.open();
    store->setNode(path("a/b"), *node("1"));
    for (const MetadataPath& each : paths("c a a/b / c/d"))
        store->addPath(each);
    requireContentNowAndLater(project, "after addPath", *store, "a a/b(1) c c/d");
}

void siblingsKeepTheirOrder(const ScratchProject& project) {
    const auto store = project.open();
    for (const char* name : {"m", "z", "a", "B", "10", "9"})
        store->setNode(path(name), *node("1"));
    store->setNode(path("a"), *node("2"));
    store->removePath(path("z"));
    store->addPath(path("z"));
    requireContentNowAndLater(project, "after adding siblings", *store, "m(1) a(2) B(1) 10(1) 9(1) z");
}

void removeNodeKeepsThePath(const ScratchProject& project) {
    const auto store = project.open();
    store->setNodes({{path("a"), node("1")}, {path("a/b"), node("2")}, {path("c"), node("3")}});
    store->removeNode(path("a"));
    store->removeNode(path("c"));
    store->removeNode(path("none"));
    requireContentNowAndLater(project, "after removeNode", *store, "a a/b(2) c");
}

void removePathRemovesAllBelow(const ScratchProject& project) {
    const auto store = project.open();
    store->setNodes({{path("a/b/c"), node("1")}, {path("a/d"), node("2")}, {path("e"), node("3")}});
    store->removePath(path("a/b"));
    store->removePath(path("none/here"));
    requireContentNowAndLater(project, "after removePath", *store, "a a/d(2) e(3)");
    require(!store->hasPath(path("a/b/c")) && !store->hasNode(path("a/b/c")),
            "expected nothing below the path that was removed, found something");
    store->setNode(MetadataPath(), *node("root"));
    store->removePath(MetadataPath());
    requireContentNowAndLater(project, "after removePath of the root", *store, "");
    require(store->hasPath(MetadataPath()) && !store->hasNode(MetadataPath()),
            "expected the root path without a node, found otherwise");
}

void removePathsRemovesEachPath(const ScratchProject& project) {
    const auto store = project.open();
    for (const MetadataPath& each : paths("a a/b c d d/e f"))
        store->setNode(each, *node("1"));
    store->removePaths(paths("a a/b none d/e f"));
    requireContentNowAndLater(project, "after removePaths", *store, "c(1) d(1)");
}

void setPathsIsTheWholeContent(const ScratchProject& project) {
    const auto store = project.open();
    store->setNodes(
        {{path("a"), node("1")}, {path("a/b"), node("2")}, {path("c/d"), node("3")}, {path("e"), node("4")}});
    store->setNode(MetadataPath(), *node("root"));
    store->setPaths(paths("/ a c/d new/x"));
    requireContentNowAndLater(project, "after setPaths", *store, "a(1) c c/d(3) new new/x");
    require(store->hasNode(MetadataPath()), "after setPaths with the root: expected its node, found none");
    store->setPaths(paths("a"));
    require(!project.open()->hasNode(MetadataPath()), "after setPaths without the root: expected no node, found one");
    store->setPaths({});
    requireContentNowAndLater(project, "after setPaths of nothing", *store, "");
}

void setPathsOrdersSiblings(const ScratchProject& project) {
    const auto store = project.open();
    for (const char* name : {"a", "b", "c", "d", "e"})
        store->setNode(path(name), *node("1"));
    store->setPaths(paths("/ e new b b/x e/y a/x b d c a"));
    requireContentNowAndLater(project, "after setPaths", *store, "e(1) e/y new b(1) b/x a(1) a/x d(1) c(1)");
}

void childrenAreFullPaths(const ScratchProject& project) {
    const auto store = project.open();
    store->addPath(path("a/b/c"));
    store->addPath(path("a/b/d"));
    for (const auto& [parent, children] :
         {std::pair{"", "a"}, {"a", "a/b"}, {"a/b", "a/b/c a/b/d"}, {"a/b/c", ""}, {"none", ""}, {"b", ""}})
        requireEqual(std::string("the children of \"") + parent + '"', children,
                     describe(store->getChildren(path(parent))));
    const auto found = store->getChildren(path("a/b"));
    require(found == paths("a/b/c a/b/d"),
            "the children of \"a/b\": expected paths of steps of the type \"t\", found others");
}

void rootNodeIsKeptApart(const ScratchProject& project) {
    require(project.open()->hasPath(MetadataPath()), "the root path in a new folder: expected to exist, found not");
    MetadataNodeSpecification root(u"Path");
    root.put(u"MetadataType", u"x");
    root.createChildNode(u"Path");
    project.open()->setNode(MetadataPath(), root);
    project.open()->setNode(path("a"), *node("1"));
    const auto store = project.open();
    requireEqual("the root's node", describe(&root), describe(store->getNode(MetadataPath()).get()));
    requireContent("beside the root's node", *store, "a(1)");
    store->removeNode(MetadataPath());
    require(!project.open()->hasNode(MetadataPath()), "the root's node once removed: expected none, found one");
    requireContent("without the root's node", *project.open(), "a(1)");
}

void nodesAreCopies(const ScratchProject& project) {
    const auto store = project.open();
    const auto single = node("1");
    const auto bulk = node("2");
    store->setNode(path("a"), *single);
    store->setNodes({{path("b"), bulk}});
    const auto answer = store->getNode(path("a"));
    for (const auto& each : {single, bulk})
        each->put(u"Value", u"changed");
    answer->put(u"Value", u"changed");
    answer->createChildNode();
    requireEqual("the node", describe(node("1").get()), describe(store->getNode(path("a")).get()));
    store->addPath(path("c"));
    requireContentNowAndLater(project, "after changing nodes outside the store", *store, "a(1) b(2) c");
}

/// A node of a host's own class: it tells the keys as they were put, also again.
class HostsNode : public MetadataNodeSpecification {
public:
    void put(std::u16string key, std::u16string value) override {
        keys_.push_back(key);
        MetadataNodeSpecification::put(std::move(key), std::move(value));
    }
    std::vector<std::u16string> getAttributeKeys() const override { return keys_; }

private:
    std::vector<std::u16string> keys_;
};

void takesNodesOfAnyClass(const ScratchProject& project) {
    HostsNode unordered;
    const auto repeated = std::make_shared<HostsNode>();
    MetadataNodeSpecification expected;
    for (const auto& [key, value] : {std::pair(u"Version", u"2"), std::pair(u"Name", u"x")}) {
        expected.put(key, value);
        unordered.put(key, value);
        repeated->put(key, value);
    }
    repeated->put(u"Version", u"2");
    const auto store = project.open();
    const auto change = [&] {
        store->setNode(path("a"), unordered);
        store->setNodes({{path("b"), repeated}});
    };
    change();
    for (const char* const each : {"a", "b"}) {
        const std::string what = std::string("the node at ") + each;
        requireEqual(what, describe(&expected), describe(store->getNode(path(each)).get()));
        requireEqual(what + ", opened anew", describe(&expected), describe(project.open()->getNode(path(each)).get()));
    }
    const auto before = readFiles(project.root());
    change();
    requireSameFiles("after the same nodes were set again", before, readFiles(project.root()));
    store->setNode(path("a"), *node("1"));
    store->removePath(path("b"));
    requireContentNowAndLater(project, "after one of them was replaced and one removed", *store, "a(1)");
}

void copiesAreEqual(const ScratchProject& project) {
    const auto store = project.open();
    for (const MetadataPath& each : paths("z a/b m/x/y m/a"))
        store->addPath(each);
    store->setNodes({{path("a/b"), node(" \n<&>")}, {path("m"), node("2")}});
    const auto copy = project.open("copy");
    copy->setNode(path("what was there"), *node("goes"));
    metadata::copyMetadata(*store, *copy);
    const auto back = project.open("back");
    metadata::copyMetadata(*project.open("copy"), *back);
    for (const char* name : {"project", "copy", "back"})
        requireContent(std::string("of ") + name, *project.open(name), "z a a/b( \n<&>) m(2) m/x m/x/y m/a");
}

}  // namespace

std::vector<Rule> getOperationRules() {
    return {
        {"SetNodeReplacesOneNode",
         "`setNode` stores a node at its path, in place of the whole node that is there, and at no other path.",
         setNodeReplacesOneNode},
        {"SetNodesSetsEveryNode",
         "`setNodes` does what `setNode` does for every entry, in the order of the map; an entry without a node leaves "
         "its path without one.",
         setNodesSetsEveryNode},
        {"MissingAncestorsAreAdded",
         "The missing ancestors of a path are added with it, each as the last child of its parent and without a node.",
         missingAncestorsAreAdded},
        {"AddPathKeepsWhatIsThere",
         "`addPath` adds a path without a node as the last child of its parent, and leaves a path that exists as it "
         "is.",
         addPathKeepsWhatIsThere},
        {"SiblingsKeepTheirOrder",
         "Siblings stay in the order in which they were added, whatever their names and however often their nodes are "
         "set.",
         siblingsKeepTheirOrder},
        {"RemoveNodeKeepsThePath", "`removeNode` removes a node and keeps its path and what is below.",
         removeNodeKeepsThePath},
        {"RemovePathRemovesAllBelow",
         "`removePath` removes a path with everything below it; the root path only loses its node and everything "
         "below.",
         removePathRemovesAllBelow},
        {"RemovePathsRemovesEachPath",
         "`removePaths` does what `removePath` does for every entry, also where one lies below another or does not "
         "exist.",
         removePathsRemovesEachPath},
        {"SetPathsIsTheWholeContent",
         "`setPaths` adds the paths that are missing, keeps the nodes at those that are listed, and removes all others "
         "with their nodes; ancestors count as listed, and the root path loses its node if it is not.",
         setPathsIsTheWholeContent},
        {"SetPathsOrdersSiblings",
         "`setPaths` puts siblings into the order in which they are listed, ancestors where they are first needed.",
         setPathsOrdersSiblings},
        {"ChildrenAreFullPaths",
         "`getChildren` answers the full paths of the direct children, also of a branch, and none for a path that does "
         "not exist.",
         childrenAreFullPaths},
        {"RootNodeIsKeptApart",
         "The root path always exists, and its node is kept apart from all others and from what the core file says.",
         rootNodeIsKeptApart},
        {"NodesAreCopies",
         "A store keeps and answers copies: a node that is changed after it was passed or answered changes nothing in "
         "the store.",
         nodesAreCopies},
        {"TakesNodesOfAnyClass",
         "A node of a host's own class is stored as what it says, also where it tells its keys in another order, or "
         "one "
         "of them twice; setting it again changes nothing.",
         takesNodesOfAnyClass},
        {"CopiesAreEqual",
         "`copyMetadata` into a store, over what is there, and out of it again keeps every path, every node and the "
         "order.",
         copiesAreEqual},
    };
}

}  // namespace project::store_testing
