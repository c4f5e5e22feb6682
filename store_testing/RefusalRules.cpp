// What a store refuses, and that it does so before anything is touched.

#include "project/metadata/MetadataErrors.hpp"
#include "store_testing/RuleGroups.hpp"
#include "store_testing/ScratchProject.hpp"

namespace project::store_testing {

namespace {

std::shared_ptr<MetadataNode> nested(int levels) {
    auto root = std::make_shared<MetadataNodeSpecification>();
    MetadataNode* node = root.get();
    for (int level = 1; level < levels; ++level)
        node = &node->createChildNode();
    return root;
}

/// Nodes that XML cannot hold, or that XML readers do not take.
std::map<std::string, std::shared_ptr<MetadataNode>> doubtfulNodes() {
    std::map<std::string, std::shared_ptr<MetadataNode>> nodes{
        {"a node with a blank in its name", std::make_shared<MetadataNodeSpecification>(u"no name")},
        {"a node without a name", std::make_shared<MetadataNodeSpecification>(u"")},
        {"a node with markup in its name", std::make_shared<MetadataNodeSpecification>(u"a><b")},
        {"a node of 1,000 levels", nested(1000)},
        {"a node with a bad child", nested(1)},
        {"a node with blanks around a key", nested(1)},
        {"a node with attributes of 18,000,000 bytes", nested(1)},
        {"a value with a surrogate that has no partner", nested(1)}};
    nodes["a node with a bad child"]->createChildNode(u"1").createChildNode();
    nodes["a node with blanks around a key"]->put(u" key ", u"1");
    nodes["a value with a surrogate that has no partner"]->put(u"key", {u'a', 0xD800});
    for (const char16_t* key : {u"a", u"b", u"c"})
        nodes["a node with attributes of 18,000,000 bytes"]->put(key, std::u16string(1'000'000, u'"'));
    return nodes;
}

/// Carries out `change`, which may be refused with a `MetadataWriteFailure`. @return whether it was not
template <class Change>
bool isAccepted(const std::string& what, const Change& change) {
    try {
        change();
        return true;
    } catch (const metadata::MetadataWriteFailure&) {
        return false;
    } catch (...) {
        throw Breach(what + ": expected to be stored or the error MetadataWriteFailure, found " +
                     describeCurrentException());
    }
}

void refusesWhatIsNotReadBack(const ScratchProject& project) {
    const auto store = project.open();
    for (const auto& [what, doubtful] : doubtfulNodes()) {
        store->setNodes({{path("a"), node("1")}, {path("b"), node("1")}});
        const auto before = readFiles(project.root());
        if (isAccepted(what, [&, &refused = *doubtful] { store->setNode(path("a"), refused); })) {
            requireEqual(what + ", opened anew", describe(doubtful.get()),
                         describe(project.open()->getNode(path("a")).get()));
            continue;
        }
        requireContent("after refusing " + what, *store, "a(1) b(1)");
        requireSameFiles("after refusing " + what, before, readFiles(project.root()));
    }
}

void refusesWholeBatches(const ScratchProject& project) {
    const auto store = project.open();
    const Nodes before{{path("a"), node("1")}, {path("c"), node("1")}};
    for (const auto& [what, doubtful] : doubtfulNodes()) {
        store->setPaths({});
        store->setNodes(before);
        const Nodes batch{
            {path("a"), node("2")}, {path("b"), doubtful}, {path("c"), node("2")}, {path("d"), node("2")}};
        if (isAccepted(what, [&] { store->setNodes(batch); }))
            continue;
        requireContent("after refusing a batch with " + what, *store, "a(1) c(1)");
        requireContent("after refusing a batch with " + what + ", opened anew", *project.open(), "a(1) c(1)");
    }
}

}  // namespace

std::vector<Rule> getRefusalRules() {
    return {
        {"RefusesWhatIsNotReadBack",
         "A node that could not be read back as it is, such as one whose name is no XML name or that is nested too "
         "deep, is refused with a `MetadataWriteFailure`, and no file is touched.",
         refusesWhatIsNotReadBack},
        {"RefusesWholeBatches", "A batch with a node that is refused changes nothing at all.", refusesWholeBatches},
    };
}

}  // namespace project::store_testing
