// Several stores on one project.

#include <atomic>
#include <functional>
#include <future>

#include "project/metadata/MetadataErrors.hpp"
#include "store_testing/RuleGroups.hpp"
#include "store_testing/ScratchProject.hpp"

namespace project::store_testing {

namespace {

using Change = void (*)(MetadataManager& store);

/// Expects `change` to be refused because of what somebody else wrote.
void requireRefused(const std::string& what, MetadataManager& store, Change change) {
    requireThrows<metadata::MetadataWriteFailure>(what, "MetadataWriteFailure", [&] { change(store); });
}

void storesSeeEachOther(const ScratchProject& project) {
    const auto one = project.open();
    const auto other = project.open();
    one->setNode(path("a"), *node("1"));
    requireContent("of a store opened before the first change", *other, "a(1)");
    other->setNode(path("a"), *node("2"));
    other->setNode(path("b/c"), *node("3"));
    requireContent("after the other store's setNode", *one, "a(2) b b/c(3)");
    one->setPaths(paths("b/c b/d a"));
    requireContent("after the other store's setPaths", *other, "b b/c(3) b/d a(2)");
    other->removePath(path("b"));
    requireContent("after the other store's removePath", *one, "a(2)");
}

void separateChangesBothStay(const ScratchProject& project) {
    project.open()->setNodes({{path("a"), node("1")}, {path("b"), node("1")}, {path("c/d"), node("1")}});
    const auto one = project.open();
    const auto other = project.open();
    one->setNode(path("a"), *node("2"));
    other->setNode(path("b"), *node("3"));
    one->setNode(path("p/x"), *node("4"));
    other->setNode(path("p/y"), *node("5"));
    one->removePath(path("c/d"));
    other->addPath(path("c/e"));
    requireContent("after changes by two stores in turn", *project.open(), "a(2) b(3) c c/e p p/x(4) p/y(5)");
}

void staleNodeIsNotReplaced(const ScratchProject& project) {
    const auto stale = project.open();
    stale->setNodes({{path("a"), node("1")}, {path("b"), node("1")}});
    project.open()->setNode(path("b"), *node("2"));
    const Change single = [](MetadataManager& store) { store.setNode(path("b"), *node("3")); };
    const Change batch = [](MetadataManager& store) {
        store.setNodes({{path("a"), node("3")}, {path("b"), node("3")}, {path("c"), node("3")}});
    };
    // These do not show the node.
    stale->getChildren(MetadataPath());
    stale->hasPath(path("b"));
    requireRefused("setNode over another store's change", *stale, single);
    requireRefused("setNodes over another store's change", *stale, batch);
    requireContent("after the refused changes", *project.open(), "a(1) b(2)");

    stale->getNode(path("b"));
    batch(*stale);
    requireContent("after reading the node and changing it again", *project.open(), "a(3) b(3) c(3)");
}

void staleNodeIsNotRemoved(const ScratchProject& project) {
    const std::map<std::string, Change> changes{
        {"removeNode", [](MetadataManager& store) { store.removeNode(path("a/b")); }},
        {"removePath", [](MetadataManager& store) { store.removePath(path("a/b")); }},
        {"removePath of its parent", [](MetadataManager& store) { store.removePath(path("a")); }},
        {"removePaths", [](MetadataManager& store) { store.removePaths(paths("c a/b")); }},
        {"setPaths", [](MetadataManager& store) { store.setPaths(paths("/ a c")); }}};
    for (const auto& [what, change] : changes) {
        project.open(what)->setNodes({{path("a/b"), node("1")}, {path("c"), node("1")}});
        const auto stale = project.open(what);
        project.open(what)->setNode(path("a/b"), *node("2"));
        requireRefused(what + " over another store's change", *stale, change);
        requireContent("after " + what + " was refused", *project.open(what), "a a/b(2) c(1)");
        stale->hasNode(path("a/b"));
        change(*stale);
        require(!project.open(what)->hasNode(path("a/b")),
                what + " after hasNode: expected to remove the node, found it still there");
    }
}

/// Runs both at the same time, each in a thread of its own. @throws what one of them throws
void runTogether(const std::function<void()>& one, const std::function<void()>& other) {
    auto running = std::async(std::launch::async, one);
    other();
    running.get();
}

void simultaneousChangesAllStay(const ScratchProject& project) {
    constexpr int count = 10;
    const auto write = [&](const std::string& name) {
        const auto store = project.open();
        for (int i = 0; i < count; ++i)
            store->setNode(path(name + std::to_string(i)), *node("1"));
    };
    project.root();
    runTogether([&] { write("a"); }, [&] { write("b"); });
    const auto found = project.open()->getChildren(MetadataPath()).size();
    require(found == 2 * count,
            "expected " + std::to_string(2 * count) + " nodes set by two stores, found " + std::to_string(found));
}

void readersSeeWholeBatches(const ScratchProject& project) {
    const std::vector<MetadataPath> batches[] = {paths("a b c d"), paths("e f g h")};
    project.open()->setPaths(batches[0]);
    std::atomic<bool> finished = false;
    const auto read = [&] {
        const auto store = project.open();
        while (!finished) {
            const auto found = store->getChildren(MetadataPath());
            require(found == batches[0] || found == batches[1],
                    "expected the paths of one batch while another store writes, found a mixture");
        }
    };
    const auto write = [&] {
        const std::shared_ptr<void> atTheEnd(nullptr, [&](void*) { finished = true; });
        const auto store = project.open();
        for (std::size_t i = 1; i <= 20; ++i)
            store->setPaths(batches[i % 2]);
    };
    runTogether(read, write);
}

}  // namespace

std::vector<Rule> getSharingRules() {
    return {
        {"StoresSeeEachOther", "Every store on a project sees at once what another one has changed.",
         storesSeeEachOther},
        {"SeparateChangesBothStay", "Changes of two stores to different nodes both stay, without reading in between.",
         separateChangesBothStay},
        {"StaleNodeIsNotReplaced",
         "A node that somebody else changed since the store was opened or last read or wrote it is not replaced: the "
         "whole change is a `MetadataWriteFailure`, and goes through once the node was read again; `getChildren` and "
         "`hasPath` do not read it.",
         staleNodeIsNotReplaced},
        {"StaleNodeIsNotRemoved",
         "Nor is such a node removed, be it by `removeNode`, `removePath`, `removePaths` or a `setPaths` that leaves "
         "it out.",
         staleNodeIsNotRemoved},
        {"SimultaneousChangesAllStay",
         "Stores that change one project at the same time, each in a thread of its own, wait for each other, and all "
         "their changes stay.",
         simultaneousChangesAllStay},
        {"ReadersSeeWholeBatches",
         "A reading operation sees all of a batch that another store writes, or nothing of it.",
         readersSeeWholeBatches},
    };
}

}  // namespace project::store_testing
