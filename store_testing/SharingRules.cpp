// Several stores on one project.

#include <functional>
#include <future>
#include <utility>

#include "host/FileSystem.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/RepeatableRead.hpp"
#include "project/metadata/WholeContentWrite.hpp"
#include "store_testing/ChildProcess.hpp"
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
    // Nor does a change of another node.
    stale->setNode(path("a"), *node("2"));
    requireRefused("setNode over another store's change, after a change of another node", *stale, single);
    requireContent("after the refused changes", *project.open(), "a(2) b(2)");

    stale->getNode(path("b"));
    batch(*stale);
    requireContent("after reading the node and changing it again", *project.open(), "a(3) b(3) c(3)");

    project.open()->setNodes({{MetadataPath(), node("4")}, {path("b"), node("4")}});
    stale->setPaths(paths("/ c b a"));
    requireRefused("setNode over another store's change, after an order of all paths", *stale, single);
    requireRefused("setNode of the root path over another store's change, after an order of all paths", *stale,
                   [](MetadataManager& store) { store.setNode(MetadataPath(), *node("5")); });
    // What the store has written it knows, also where it did not know of the path.
    project.open()->addPath(path("d"));
    stale->setNode(path("d"), *node("5"));
    stale->setNode(path("d"), *node("6"));
    requireContent("after changes of a path that another store added", *project.open(), "c(3) b(4) a(3) d(6)");
}

void removedNodeDoesNotComeBack(const ScratchProject& project) {
    const std::map<std::string, Change> changes{
        {"setNode", [](MetadataManager& store) { store.setNode(path("a/b"), *node("2")); }},
        {"setNode of a path below it", [](MetadataManager& store) { store.setNode(path("a/b/x"), *node("2")); }},
        {"setNodes",
         [](MetadataManager& store) {
             store.setNodes({{path("c"), node("2")}, {path("a/b"), node("2")}});
         }},
        {"addPath", [](MetadataManager& store) { store.addPath(path("a/b")); }},
        {"setPaths", [](MetadataManager& store) { store.setPaths(paths("/ a a/b c")); }}};
    const std::pair<Change, std::string> removals[] = {
        {[](MetadataManager& store) { store.removePath(path("a/b")); }, "a c(1)"},
        {[](MetadataManager& store) { store.removePath(path("a")); }, "c(1)"},
        {[](MetadataManager& store) { store.setPaths(paths("c")); }, "c(1)"}};
    const auto begin = [&](const std::string& root) {
        project.open(root)->setNodes({{path("a/b"), node("1")}, {path("c"), node("1")}});
    };
    for (const auto& [name, change] : changes) {
        for (std::size_t i = 0; i < std::size(removals); ++i) {
            const auto& [remove, content] = removals[i];
            const std::string what = name + " of a node that another store removed, way " + std::to_string(i + 1);
            begin(what);
            const auto stale = project.open(what);
            stale->getNode(path("a/b"));
            remove(*project.open(what));
            stale->getChildren(path("a"));
            requireRefused(what, *stale, change);
            requireContent("after the refused " + what, *project.open(what), content);
            require(!stale->hasNode(path("a/b")), what + ": expected hasNode to say that it is gone, found it there");
            change(*stale);
            require(project.open(what)->hasPath(path("a/b")), what + ", after hasNode: expected the path, found none");
        }
    }
    const Change set = changes.at("setNode");
    begin("removeNode");
    const auto stale = project.open("removeNode");
    for (const char* how : {"read", "written"}) {
        stale->hasNode(path("a/b"));
        project.open("removeNode")->removeNode(path("a/b"));
        requireRefused(std::string("setNode of a node that was ") + how + ", after another store's removeNode", *stale,
                       set);
        stale->hasNode(path("a/b"));
        set(*stale);
    }
    // Nor if it has been changed before, which the store has come upon.
    project.open("removeNode")->setNode(path("a/b"), *node("3"));
    stale->hasPath(path("c"));
    project.open("removeNode")->removeNode(path("a/b"));
    requireRefused("setNode of a node that another store has changed and then removed", *stale, set);
    stale->hasNode(path("a/b"));
    // What a store has removed itself is its to set, and what was not there is everybody's.
    for (const auto& [remove, content] : removals) {
        stale->getNode(path("c"));
        stale->getNode(path("a/b"));
        remove(*stale);
        project.open("removeNode")->setNode(path("c"), *node("1"));
        requireContent("after a removal by the store itself", *stale, content);
        set(*stale);
    }
    stale->setNode(MetadataPath(), *node("1"));
    stale->setPaths(paths("c"));
    stale->setNode(MetadataPath(), *node("2"));
    project.open("removeNode")->removePath(path("c"));
    stale->setNode(path("d"), *node("1"));
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

void readingIsNotBehindItsBeginning(const ScratchProject& project) {
    const auto one = project.open();
    one->setNodes({{path("a"), node("1")}, {path("b/c"), node("1")}});
    // One node alone: whoever goes through all of them comes upon every change.
    const auto requireNode = [&](const std::string& when, const char* at, const char* value) {
        requireEqual("the node " + when, describe(node(value).get()), describe(one->getNode(path(at)).get()));
    };
    requireNode("before a reading", "b/c", "1");
    project.open()->setNode(path("b/c"), *node("2"));
    {
        const metadata::RepeatableRead reading(*one);
        requireNode("at the beginning of a reading", "b/c", "2");
        one->setNode(path("b/c"), *node("3"));
        requireNode("after a change of its own", "b/c", "3");
        project.open()->setNode(path("b/c"), *node("4"));
        requireRefused("setNodes of what was read before another store changed it", *one, [](MetadataManager& store) {
            store.setNodes({{path("b/c"), node("3")}});
        });
        requireContent("after a change of its own was refused", *project.open(), "a(1) b b/c(4)");
        one->hasNode(path("b/c"));
        project.open()->setNode(path("b/c"), *node("5"));
    }
    requireNode("after a reading", "b/c", "5");
}

void wholeContentIsOneChange(const ScratchProject& project) {
    const auto one = project.open();
    one->setNodes({{path("a"), node("1")}, {path("b"), node("1")}});
    {
        const metadata::WholeContentWrite writing(*one);
        one->setNodes({{path("b"), node("2")}, {path("c"), node("2")}});
        one->setPaths({path("c"), path("b")});
        requireContent("after setNodes and setPaths of a whole content", *project.open(), "c(2) b(2)");
        one->setNode(path("c"), *node("3"));
        requireContent("after another change", *project.open(), "c(3) b(2)");
    }
    requireContent("after a whole content and another change, by the store itself,", *one, "c(3) b(2)");
    {
        const metadata::WholeContentWrite writing(*one);
        one->setNodes({{path("b"), node("4")}, {path("d"), node("4")}});
        project.open()->setNode(path("b"), *node("5"));
        try {
            one->setPaths({path("c"), path("b"), path("d")});
        } catch (const metadata::MetadataWriteFailure&) {
            // The two need not be one change that comes later; but if they are, it must not.
        }
    }
    requireEqual("the node that another store set between setNodes and setPaths of a whole content",
                 describe(node("5").get()), describe(project.open()->getNode(path("b")).get()));
}

/// Runs both at the same time, each in a thread of its own. @throws what one of them throws
void runInThreads(const std::function<void()>& one, const std::function<void()>& other) {
    auto running = std::async(std::launch::async, one);
    other();
    running.get();
}

/// The same in a process of their own. @throws Breach if one of them ends with an error or does not come to its end
void runInProcesses(const std::function<void()>& one, const std::function<void()>& other) {
    ChildProcess first(one);
    ChildProcess second(other);
    for (ChildProcess* process : {&first, &second}) {
        if (const auto breach = process->wait(checkLimit))
            throw Breach("in a process beside another: " + *breach);
    }
}

using RunTogether = void (*)(const std::function<void()>& one, const std::function<void()>& other);

/// Processes come first: they are forked off one that has never had another thread.
const std::pair<const char*, RunTogether> waysToRun[] = {{"processes", runInProcesses}, {"threads", runInThreads}};

void simultaneousChangesAllStay(const ScratchProject& project) {
    constexpr int count = 10;
    for (const auto& [what, run] : waysToRun) {
        const std::string root = std::string("in ") + what;
        project.root(root);
        const auto write = [&](const std::string& name) {
            const auto store = project.open(root);
            for (int i = 0; i < count; ++i)
                store->setNode(path(name + std::to_string(i)), *node("1"));
        };
        run([&] { write("a"); }, [&] { write("b"); });
        const auto found = project.open(root)->getChildren(MetadataPath()).size();
        requireEqual(std::string("the number of nodes that were set in two ") + what + " at the same time",
                     std::to_string(2 * count), std::to_string(found));
    }
}

void readersSeeWholeBatches(const ScratchProject& project) {
    const std::vector<MetadataPath> batches[] = {paths("a b c d"), paths("e f g h")};
    for (const auto& [what, run] : waysToRun) {
        const std::string root = std::string("in ") + what;
        project.open(root)->setPaths(batches[0]);
        const host::Path finished = project.folder() / u"finished" / project.root(root).fileName();
        const auto read = [&, root] {
            const auto store = project.open(root);
            while (!host::FileSystem::exists(finished)) {
                const auto found = store->getChildren(MetadataPath());
                require(found == batches[0] || found == batches[1],
                        "the paths while another store writes: expected \"a b c d\" or \"e f g h\", found \"" +
                            describe(found) + '"');
            }
        };
        const auto write = [&, root] {
            const std::shared_ptr<void> atTheEnd(nullptr,
                                                 [&](void*) { host::FileSystem::create_directories(finished); });
            const auto store = project.open(root);
            for (std::size_t i = 1; i <= 20; ++i)
                store->setPaths(batches[i % 2]);
        };
        run(read, write);
    }
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
        {"RemovedNodeDoesNotComeBack",
         "Where a node was that the store has told of (`getNode`, `hasNode`) or written, and that somebody else has "
         "removed since, neither a node is set nor a path added, there or below: that is a `MetadataWriteFailure` too, "
         "until the node was asked for again.",
         removedNodeDoesNotComeBack},
        {"ReadingIsNotBehindItsBeginning",
         "Within a `RepeatableRead` a store shows what others have changed before, and what it changes itself; it "
         "overwrites nothing that others change meanwhile, and shows that as soon as the reading has ended.",
         readingIsNotBehindItsBeginning},
        {"WholeContentIsOneChange",
         "Within a `WholeContentWrite` what `setNodes` and then `setPaths` are given is on disk when `setPaths` "
         "returns, "
         "and replaces nothing that others have set in between.",
         wholeContentIsOneChange},
        {"SimultaneousChangesAllStay",
         "Stores that change one project at the same time, be it in threads or in processes of their own, wait for "
         "each other, and all their changes stay.",
         simultaneousChangesAllStay},
        {"ReadersSeeWholeBatches",
         "A reading operation sees all of a batch that another store writes, or nothing of it.",
         readersSeeWholeBatches},
    };
}

}  // namespace project::store_testing
