/// The node in memory: attributes, children, and copies.
#include <memory>
#include <utility>

#include "project/metadata/MetadataNodeSpecification.hpp"
#include "tests/metadata/ForeignNode.hpp"
#include "tests/metadata/Helpers.hpp"

using namespace project::metadata;
using namespace test;

TEST(NodeTest, attributesAreKeptInOrderOfTheirKeysAndOverwritten) {
    MetadataNodeSpecification node(u"N");
    EXPECT_EQ(node.get(u"never put"), u"");
    EXPECT_EQ(node.getAttributeKeys(), Texts{}) << "asking adds nothing";

    for (const char16_t* key : {u"b", u"a", u"ab", u"Z", u"\uD55C", u"é", u" b "})
        node.put(key, u"old");
    node.put(u"a", u"new");
    node.put(u"b", u"");
    EXPECT_EQ(render(node), u"N{ b =old,Z=old,a=new,ab=old,b=,é=old,\uD55C=old}");
    EXPECT_EQ(node.get(u"b"), u"");
    EXPECT_EQ(node.get(u"a "), u"") << "keys are taken as they are";
}

TEST(NodeTest, aValueStaysWhereItIsWhileOthersAreAdded) {
    MetadataNodeSpecification node;
    node.put(u"key", u"a value that is too long to be kept inside of a string object");
    const std::u16string& value = node.get(u"key");
    const std::u16string& nothing = node.get(u"other");
    for (char16_t c = u'a'; c <= u'z'; ++c)
        node.put({u'k', c}, u"value");
    EXPECT_EQ(&node.get(u"key"), &value);
    EXPECT_EQ(value, u"a value that is too long to be kept inside of a string object");
    EXPECT_EQ(nothing, u"");
}

TEST(NodeTest, aRefusedAttributeChangesNothing) {
    MetadataNodeSpecification node(u"N");
    node.put(u"a", u"1");
    EXPECT_EQ(raised<PutMetadataKeyFailure>([&] { node.put(u"1a", u"1"); }), Texts{u"1a"});
    EXPECT_EQ(raised<PutMetadataValueFailure>([&] { node.put(u"a", u"\x01"); }), Texts{u"\x01"});
    EXPECT_EQ(raised<PutMetadataValueFailure>([&] { node.put(u"b", u"\xFFFE"); }), Texts{u"\xFFFE"});
    EXPECT_EQ(raised<PutMetadataKeyFailure>([&] { node.put(u"", u"\x01"); }), Texts{u""})
        << "the key is looked at first";
    EXPECT_EQ(render(node), u"N{a=1}");
}

TEST(NodeTest, namesAreTakenAsTheyAreAndInfoByDefault) {
    EXPECT_EQ(getDefaultMetadataNodeName(), u"Info");
    EXPECT_EQ(MetadataNodeSpecification().getName(), u"Info");
    EXPECT_EQ(MetadataNodeSpecification(u"").getName(), u"");

    MetadataNodeSpecification node(u"not an XML name");
    node.createChildNode(u"b");
    node.createChildNode().createChildNode(u"a");
    node.createChildNode(u"b").put(u"k", u"v");
    EXPECT_EQ(render(node), u"not an XML name[b,Info[a],b{k=v}]");
}

TEST(NodeTest, aChildWithoutANameIsMadeByTheNamedOperation) {
    struct Loud : MetadataNodeSpecification {
        using MetadataNodeSpecification::createChildNode;
        MetadataNode& createChildNode(std::u16string name) override {
            return MetadataNodeSpecification::createChildNode(name + u"!");
        }
    } node;
    static_cast<MetadataNode&>(node).createChildNode();
    EXPECT_EQ(render(node), u"Info[Info!]");
}

TEST(NodeTest, removesOnlyTheVeryChild) {
    MetadataNodeSpecification node(u"N");
    node.createChildNode(u"a");
    MetadataNode& middle = node.createChildNode(u"a");
    MetadataNode& grandchild = middle.createChildNode(u"b");
    node.createChildNode(u"c");

    const MetadataNodeSpecification equal(*node.getChildNodes().front());
    for (const MetadataNode* stranger : {static_cast<const MetadataNode*>(&equal), &std::as_const(grandchild),
                                         static_cast<const MetadataNode*>(&node)})
        node.remove(*stranger);
    EXPECT_EQ(render(node), u"N[a,a[b],c]");

    const std::shared_ptr<MetadataNode> kept = node.getChildNodes()[1];
    const std::weak_ptr<MetadataNode> dropped = node.getChildNodes()[2];
    node.remove(middle);
    EXPECT_EQ(render(node), u"N[a,c]");
    EXPECT_EQ(render(*kept), u"a[b]") << "whoever holds a child keeps it";
    node.remove(*dropped.lock());
    EXPECT_TRUE(dropped.expired());
    EXPECT_EQ(render(node), u"N[a]");
}

TEST(NodeTest, copyingMergesAttributesAndAppendsChildren) {
    MetadataNodeSpecification source(u"S");
    source.put(u"a", u"source");
    source.put(u"b", u"source");
    source.createChildNode(u"x").createChildNode(u"y").put(u"k", u"v");

    MetadataNodeSpecification target(u"T");
    target.put(u"b", u"target");
    target.put(u"c", u"target");
    target.createChildNode(u"x");
    target.copy(source);
    EXPECT_EQ(render(target), u"T{a=source,b=source,c=target}[x,x[y{k=v}]]");
    target.copy(source);
    EXPECT_EQ(render(target), u"T{a=source,b=source,c=target}[x,x[y{k=v}],x[y{k=v}]]");
}

TEST(NodeTest, aCopyIsIndependentOfItsSource) {
    MetadataNodeSpecification source(u"S");
    source.put(u"a", u"1");
    source.createChildNode(u"x").put(u"b", u"2");
    const MetadataNodeSpecification sameType(source);
    const MetadataNodeSpecification anyType(static_cast<const MetadataNode&>(source));

    source.put(u"a", u"changed");
    source.getChildNodes().front()->put(u"b", u"changed");
    source.createChildNode();
    EXPECT_EQ(render(sameType), u"S{a=1}[x{b=2}]");
    EXPECT_EQ(render(anyType), u"S{a=1}[x{b=2}]");
}

TEST(NodeTest, copiesOtherImplementationsThroughTheirInterface) {
    const ForeignNode source(u"foreign", {{u"b", u"1"}, {u"a", u"2"}});
    EXPECT_EQ(render(MetadataNodeSpecification(static_cast<const MetadataNode&>(source))), u"foreign{a=2,b=1}");
    EXPECT_EQ(render(MetadataNodeSpecification(static_cast<const MetadataNodeSpecification&>(source))),
              u"foreign{a=2,b=1}");
}

TEST(NodeTest, anAttributeThatIsRefusedStopsTheCopy) {
    const ForeignNode badKey(u"foreign", {{u"c", u"1"}, {u"1a", u"2"}, {u"b", u"3"}});
    const ForeignNode badValue(u"foreign", {{u"c", u"1"}, {u"a", u"\x02"}, {u"b", u"3"}});
    MetadataNodeSpecification source(u"S");
    source.createChildNode(u"x");

    MetadataNodeSpecification target(u"T");
    EXPECT_EQ(raised<PutMetadataKeyFailure>([&] { target.copy(badKey); }), Texts{u"1a"});
    EXPECT_EQ(raised<PutMetadataValueFailure>([&] { target.copy(badValue); }), Texts{u"\x02"});
    EXPECT_EQ(render(target), u"T{c=1}") << "what was copied before stays";
    EXPECT_EQ(raised<PutMetadataKeyFailure>([&] { MetadataNodeSpecification copy(badKey); }), Texts{u"1a"});
}
