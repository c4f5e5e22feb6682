/// The node in memory: attributes, children, and copies.
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "tests/metadata/Helpers.hpp"

using namespace project::metadata;
using namespace test;

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
