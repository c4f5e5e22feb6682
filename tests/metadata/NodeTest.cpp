/// The node in memory: attributes, children, and copies.
#include <random>

#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/SharedNode.hpp"
#include "tests/metadata/Helpers.hpp"

using namespace project::metadata;
using namespace test;

namespace {

Texts visited(const MetadataNode& node) {
    Texts attributes;
    visitAttributes(node, [&](const auto& key, const auto& value) { attributes.push_back(key + u'=' + value); });
    return attributes;
}

Texts listed(const MetadataNode& node) {
    Texts attributes;
    for (const std::u16string& key : node.getAttributeKeys())
        attributes.push_back(key + u'=' + node.get(key));
    return attributes;
}

}  // namespace

TEST(NodeTest, attributesAreKeptInOrderOfTheirKeysAndARefusedOneChangesNothing) {
    MetadataNodeSpecification node;
    for (const char16_t* key : {u"b", u"a", u"ab", u"Z", u"\uD55C", u" b "})
        node.put(key, u"old");
    node.put(u"a", u"new");
    EXPECT_EQ(node.get(u"never put"), u"");
    EXPECT_EQ(raised<PutMetadataKeyFailure>([&] { node.put(u"1a", u"\x01"); }), Texts{u"1a"});
    EXPECT_EQ(raised<PutMetadataValueFailure>([&] { node.put(u"a", u"\x01"); }), Texts{u"\x01"});
    EXPECT_EQ(render(node), u"Info{ b =old}{Z=old}{a=new}{ab=old}{b=old}{\uD55C=old}");
}

TEST(NodeTest, aValueStaysWhereItIsWhileOthersAreAdded) {
    MetadataNodeSpecification node;
    node.put(u"key", u"value");
    const std::u16string& value = node.get(u"key");
    for (char16_t c = u'a'; c <= u'z'; ++c)
        node.put({u'k', c}, u"other");
    EXPECT_EQ(&node.get(u"key"), &value);
    EXPECT_EQ(value, u"value");
}

TEST(NodeTest, removesOnlyTheVeryChild) {
    MetadataNodeSpecification node(u"N");
    node.createChildNode(u"a");
    MetadataNode& middle = node.createChildNode(u"a");
    node.remove(MetadataNodeSpecification(*node.getChildNodes().front()));
    node.remove(middle.createChildNode());
    EXPECT_EQ(render(node), u"N[a][a[Info]]");
    node.remove(middle);
    EXPECT_EQ(render(node), u"N[a]");
}

TEST(NodeTest, copyingMergesAttributesAndAppendsCopiesOfChildren) {
    MetadataNodeSpecification source(u"S");
    source.put(u"b", u"source");
    source.createChildNode(u"x").createChildNode(u"y").put(u"k", u"v");
    const MetadataNodeSpecification constructed(static_cast<const MetadataNode&>(source));
    MetadataNodeSpecification target(u"T");
    target.put(u"b", u"target");
    target.put(u"c", u"target");
    target.createChildNode(u"x");
    target.copy(source);
    source.put(u"b", u"changed");
    source.getChildNodes().front()->createChildNode();
    EXPECT_EQ(render(target), u"T{b=source}{c=target}[x][x[y{k=v}]]");
    EXPECT_EQ(render(constructed), u"S{b=source}[x[y{k=v}]]");
}

TEST(NodeTest, aNodeOfAnotherTypeIsAskedOnceForEachThing) {
    struct Recording : MetadataNodeSpecification {
        using MetadataNodeSpecification::MetadataNodeSpecification;
        const std::u16string& get(std::u16string key) const override {
            calls.push_back(u"get " + key);
            return MetadataNodeSpecification::get(key);
        }
        std::vector<std::u16string> getAttributeKeys() const override {
            calls.emplace_back(u"getAttributeKeys");
            return {u"b", u"a", u"absent"};
        }
        const std::u16string& getName() const override {
            calls.emplace_back(u"getName");
            return MetadataNodeSpecification::getName();
        }
        const std::vector<std::shared_ptr<MetadataNode>>& getChildNodes() const override {
            calls.emplace_back(u"getChildNodes");
            return MetadataNodeSpecification::getChildNodes();
        }
        MetadataNode& createChildNode(std::u16string name) override {
            return MetadataNodeSpecification::createChildNode(u"own " + name);
        }
        using MetadataNodeSpecification::createChildNode;
        mutable Texts calls;
    };
    Recording node(u"N");
    node.put(u"a", u"1");
    node.put(u"b", u"2");
    node.createChildNode();
    const MetadataNodeSpecification copy(static_cast<const MetadataNodeSpecification&>(node));
    EXPECT_EQ(node.calls,
              (Texts{u"getName", u"getAttributeKeys", u"get b", u"get a", u"get absent", u"getChildNodes"}));
    EXPECT_EQ(render(copy), u"N{a=1}{absent=}{b=2}[own Info]");
    EXPECT_EQ(visited(node), (Texts{u"b=2", u"a=1", u"absent="}));
}

namespace {

/// Changes some node of the tree below `node`, as `random` has it.
void changeSomething(MetadataNode& node, std::mt19937& random) {
    const auto& children = node.getChildNodes();
    if (!children.empty() && random() % 2 == 0)
        return changeSomething(*children[random() % children.size()], random);
    const std::u16string text(1, static_cast<char16_t>(u'a' + random() % 20));
    switch (random() % 4) {
        case 0:
            return node.put(text, text + text);
        case 1:
            node.createChildNode(text).put(u"k", text);
            return;
        case 2:
            if (!children.empty())
                node.remove(*children[random() % children.size()]);
            return;
        default:
            MetadataNodeSpecification source(u"source");
            source.put(text, u"copied");
            source.createChildNode();
            node.copy(source);
    }
}

}  // namespace

TEST(NodeTest, aCopyThatSharesIsToItsUserAsAnyOther) {
    auto source = std::make_shared<MetadataNodeSpecification>(u"S");
    std::mt19937 random(1);  // NOLINT: the same in each run
    for (int i = 0; i < 30; ++i)
        changeSomething(*source, random);
    const std::u16string before = render(*source);
    for (unsigned seed = 0; seed < 100; ++seed) {
        const auto copy = copyKeptNode(source);
        MetadataNodeSpecification plain(static_cast<const MetadataNode&>(*source));
        std::mt19937 forCopy(seed);
        std::mt19937 forPlain(seed);
        const std::u16string& value = copy->get(u"a");
        const std::u16string valueBefore = value;
        const auto& children = copy->getChildNodes();
        for (unsigned i = 0; i < seed % 10; ++i) {
            changeSomething(*copy, forCopy);
            changeSomething(plain, forPlain);
        }
        EXPECT_EQ(render(*copy), render(plain));
        EXPECT_EQ(visited(*copy), listed(plain));
        EXPECT_EQ(visited(plain), listed(plain));
        EXPECT_EQ(&copy->getChildNodes(), &children);
        EXPECT_TRUE(value == valueBefore || copy->get(u"a") != valueBefore);
        // What is kept of it is what it says, and stays that.
        const auto kept = keepNode(*copy);
        EXPECT_EQ(render(getShared(*copy)), render(plain));
        copy->put(u"later", u"1");
        EXPECT_EQ(render(*kept), render(plain));
        EXPECT_EQ(render(*source), before);
    }
    EXPECT_EQ(keepNode(*copyKeptNode(source)), source);
    EXPECT_EQ(&getShared(*copyKeptNode(source)), source.get());
}
