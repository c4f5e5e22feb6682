/// What the fault tests do with a store: projects, and changes to them.
#pragma once

#include <string>
#include <vector>

#include "project/metadata/PathRenamer.hpp"
#include "project/metadata/WholeContentWrite.hpp"
#include "tests/stores/StoreHelpers.hpp"

namespace test {

struct Scenario {
    const char* name;
    void (*prepare)(MetadataManager& store);  ///< makes the project; null if there is none
    void (*change)(MetadataManager& store);   ///< null if it is only read
    bool includesOpening;                     ///< whether faults happen from the opening of the store on
    bool isInterrupted;                       ///< whether the change has been cut off once already, and is completed
    friend std::ostream& operator<<(std::ostream& stream, const Scenario& scenario) { return stream << scenario.name; }
};

inline void makeProject(MetadataManager& store) {
    store.setNodes({{path({}), node(u"root")},
                    {path({u"a"}), node(u"1")},
                    {path({u"a", u"b"}), node(u"2")},
                    {path({u"a", u"b", u"c"}), node(u"3")},
                    {path({u"d"}), node(u"4")},
                    {path({u"e", u"f"}), node(u"5")},
                    {path({u"g"}), node(u"6")}});
    store.addPath(path({u"h", u"i"}));
}

inline void changeNode(MetadataManager& store) {
    store.setNode(path({u"a", u"b"}), *node(u"new"));
}

inline void changeNodes(MetadataManager& store) {
    store.setNodes({{path({}), node(u"new")},
                    {path({u"a"}), node(u"new")},
                    {path({u"a", u"b", u"c"}), node(u"new")},
                    {path({u"d", u"e"}), node(u"new")},
                    {path({u"z", u"y", u"x"}), node(u"new")}});
}

inline void removeFolders(MetadataManager& store) {
    store.removePaths({path({u"a"}), path({u"e", u"f"}), path({u"g"})});
}

/// Turns the order, drops some, adds some.
inline void arrangePaths(MetadataManager& store) {
    store.setPaths({path({}), path({u"h"}), path({u"g"}), path({u"d"}), path({u"d", u"new"}), path({u"a"}),
                    path({u"a", u"new"}), path({u"a", u"b"})});
}

/// Nodes too, where that is one change.
inline void writeContent(MetadataManager& store) {
    const project::metadata::WholeContentWrite writing(store);
    if (dynamic_cast<project::metadata::WholeContentWriter*>(&store))
        changeNodes(store);
    arrangePaths(store);
}

/// Once it is done there is nothing to do any more.
inline void renameLeaf(MetadataManager& store) {
    if (store.hasPath(path({u"a", u"b", u"c"})))
        dynamic_cast<project::metadata::PathRenamer&>(store).renamePath(path({u"a", u"b", u"c"}), {u"t", u"renamed"});
}

inline const std::vector<Scenario>& allScenarios() {
    static const std::vector<Scenario> scenarios{
        {"node", makeProject, changeNode, false, false},      {"batch", makeProject, changeNodes, false, false},
        {"removal", makeProject, removeFolders, true, false}, {"order", makeProject, arrangePaths, false, false},
        {"creation", nullptr, changeNodes, false, false},     {"reading", makeProject, nullptr, true, false},
        {"recovery", makeProject, removeFolders, true, true}, {"renaming", makeProject, renameLeaf, false, false},
        {"content", makeProject, writeContent, false, false},
    };
    return scenarios;
}

}  // namespace test
