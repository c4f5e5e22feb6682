// Merging and comparing nodes and files of single paths: who is who among siblings, and what is a conflict.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/Text.hpp"
#include "operations/NodeAddress.hpp"
#include "operations/TreeDiff.hpp"
#include "operations/TreeMerge.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "store_support/EqualTrees.hpp"
#include "tests/support/TempFolder.hpp"

namespace {

namespace pm = project::metadata;
using operations::MergeResult;
using operations::MetadataTree;
using operations::TreeForm;
using test::TempFolder;

std::shared_ptr<pm::MetadataNode> parse(const std::string& xml) {
    const TempFolder folder;
    test::writeBytes(folder / "node.xml", xml);
    return pm::readFromFile(folder.path() / u"node.xml");
}

/// The root path with a node that has `children`.
MetadataTree tree(const std::string& children) {
    MetadataTree tree;
    tree.form = TreeForm::node;
    tree.root.node = parse("<Info>" + children + "</Info>");
    return tree;
}

std::string toText(const pm::MetadataNode& node) {
    std::string text = '<' + host::toUtf8(node.getName());
    for (const std::u16string& key : node.getAttributeKeys())
        text += ' ' + host::toUtf8(key) + "='" + host::toUtf8(node.get(key)) + '\'';
    if (node.getChildNodes().empty())
        return text + "/>";
    text += '>';
    for (const auto& child : node.getChildNodes())
        text += toText(*child);
    return text + "</" + host::toUtf8(node.getName()) + '>';
}

std::string childrenOf(const MetadataTree& tree) {
    std::string text;
    for (const auto& child : tree.root.node->getChildNodes())
        text += toText(*child);
    return text;
}

struct MergeCase {
    std::string what, base, ours, theirs, merged;
    std::size_t conflicts = 0;
};

TEST(MergeTest, ChildrenKeepTheirIdentity) {
    const std::string bolt = "<part id='bolt'/>", nut = "<part id='nut'/>", washer = "<part id='washer'/>";
    const std::string checked = "<part checked='1' id='bolt'/>", changed = "<part id='nut' size='2'/>";
    const std::string removed = "<Conflict RemovedBy='ours' What='removed'/>";
    const std::string unclear = "<Conflict Name='p' What='children'/>";
    const auto p = [](const std::string& values) {
        std::string text;
        for (std::size_t i = 0; i < values.size(); i += 2)
            text += std::string("<p a='") + values[i] + "' b='" + values[i + 1] + "'/>";
        return text;
    };
    const MergeCase cases[] = {
        {"removed and changed, beside a changed one", bolt + nut + washer, changed + washer, checked + nut + washer,
         "<part checked='1' id='bolt'>" + removed + "</part>" + changed + washer, 1},
        {"inserted before one that both change", bolt + nut, "<part id='new'/>" + bolt + changed,
         bolt + "<part id='nut' mass='3'/>", "<part id='new'/>" + bolt + "<part id='nut' mass='3' size='2'/>"},
        {"replaced", bolt, nut, checked, nut + "<part checked='1' id='bolt'>" + removed + "</part>", 1},
        {"both added, of one identity", bolt, bolt + nut, bolt + changed, bolt + changed},
        {"another attribute of that kind says otherwise", "<I id='0' name='a'/><I id='1' name='b'/>",
         "<I id='0' name='b'/>", "<I c='1' id='0' name='a'/><I id='1' name='b'/>",
         "<I id='0' name='b'/><I c='1' id='0' name='a'/><Conflict Name='I' What='children'/>", 1},
        {"any attribute that tells them apart", p("1x2x3x"), p("2y3x"), p("1z2x3x"),
         "<p a='1' b='z'>" + removed + "</p>" + p("2y3x"), 1},
        {"the only one of its name", "<q/><p a='1'/>", "<p a='2'/><q/>", "<q/><p a='1' b='1'/>",
         "<p a='2' b='1'/><q/>"},
        {"between unchanged neighbours", p("1111221133"), p("11112y1133"), p("11x1221133"), p("11x12y1133")},
        {"without identity, position alone", p("111122"), p("1x1y22"), p("1z1122"), p("1x1z1y22") + unclear, 1},
        {"without identity, one side alone", p("111122"), p("1x1y22"), p("111122") + p("33"), p("1x1y2233")},
        {"without identity, both alike", p("111122"), p("1x1y22"), p("1x1y22") + p("33"), p("1x1y2233")},
        {"one of equal ones removed, one changed", p("1111"), p("11"), p("1x11"), p("111x") + unclear, 1},
        {"one of equal ones removed by both", p("11112211"), p("112211"), p("112211"), p("112211")},
        {"one that is gone may be one that is new", p("11112233"), p("1133112x"), p("111133"), p("1133112x") + unclear,
         1},
        {"equal ones between several neighbours", p("11113311116611"), p("113311116611") + p("99"),
         p("1x111133") + p("6611"), p("111x11113311116611") + p("9911") + unclear, 1},
        {"one moves, the other changes", bolt + nut + washer, washer + bolt + nut, bolt + changed + washer,
         washer + bolt + changed},
        {"both move", bolt + nut + washer + "<part id='x'/>", washer + bolt + nut + "<part id='x'/>",
         nut + bolt + washer + "<part id='x'/>", washer + nut + bolt + "<part id='x'/>"},
        {"both move, and no order agrees with both", bolt + nut + washer, nut + bolt + washer, bolt + washer + nut,
         nut + bolt + washer + "<Conflict What='order'/>", 1},
    };
    for (const MergeCase& merge : cases) {
        const MergeResult result = mergeTrees(tree(merge.base), tree(merge.ours), tree(merge.theirs));
        EXPECT_EQ(childrenOf(result.tree), merge.merged) << merge.what;
        EXPECT_EQ(result.conflicts.size(), merge.conflicts) << merge.what;
    }
}

/// A file of one path.
MetadataTree file(const std::u16string& location, const std::string& node) {
    MetadataTree tree;
    tree.form = TreeForm::path;
    tree.root.step = pm::PathElement(u"File", location);
    tree.root.node = parse(node);
    return tree;
}

/// A version control system may take a new file for a renamed one.
TEST(MergeTest, VersionsOfDifferentPathsAreAConflict) {
    const MetadataTree pump = file(u"pump.c", "<Info a='1' b='1'/>");
    const MetadataTree edited = file(u"pump.c", "<Info a='2' b='1'/>");
    const MetadataTree valve = file(u"valve.c", "<Info a='1' b='2'/>");
    for (const bool isSwapped : {false, true}) {
        const MergeResult result = isSwapped ? mergeTrees(pump, edited, valve) : mergeTrees(pump, valve, edited);
        EXPECT_EQ(result.tree.root.step, valve.root.step);
        const std::string sides =
            isSwapped ? "Ours='File:pump.c' Theirs='File:valve.c'" : "Ours='File:valve.c' Theirs='File:pump.c'";
        EXPECT_EQ(toText(*result.tree.root.node),
                  "<Info a='1' b='2'><Conflict Base='File:pump.c' " + sides + " What='path'/></Info>");
        EXPECT_EQ(result.conflicts.size(), 1U);
        const MergeResult unchanged = isSwapped ? mergeTrees(pump, pump, valve) : mergeTrees(pump, valve, pump);
        EXPECT_TRUE(store_support::equalTrees(*unchanged.tree.root.node, *valve.root.node));
        EXPECT_EQ(unchanged.conflicts.size(), 0U);
    }
    EXPECT_EQ(mergeTrees({}, pump, valve).conflicts.size(), 1U);
}

TEST(MergeTest, ADifferenceKnowsChildrenThatHaveMoved) {
    const MetadataTree before = tree("<i id='1'/><i id='2'/><i id='3'/><j/>");
    const MetadataTree after = tree("<i id='3' a='1'/><i id='1'/><i id='4'/><j/>");
    const auto diffs = operations::diffTrees(before, after);
    ASSERT_EQ(diffs.size(), 1U);
    std::string text;
    for (const operations::NodeDiff& child : diffs.front().node->children) {
        text += child.before ? toText(*child.before) : "+";
        text += child.after ? toText(*child.after) : "-";
        text += std::to_string(child.position) + (child.isMoved ? " moved " : " ");
    }
    EXPECT_EQ(text, "<i id='3'/><i a='1' id='3'/>1 moved <i id='2'/>-2 +<i id='4'/>3 ");
}

TEST(MergeTest, FilesOfTwoPathsDifferInWhatTheyAreOf) {
    const auto listDiffs = [](const MetadataTree& before, const MetadataTree& after) {
        std::string text;
        for (const operations::PathDiff& diff : operations::diffTrees(before, after))
            text += (diff.before ? "-" : "") + std::string(diff.after ? "+" : "") + host::toUtf8(diff.path.string());
        return text;
    };
    const MetadataTree a = file(u"a", "<Info k='1'/>");
    const MetadataTree b = file(u"b", "<Info k='1'/>");
    EXPECT_EQ(listDiffs(a, b), "-File:a+File:b");
    EXPECT_EQ(listDiffs({}, b), "+File:b");
    EXPECT_EQ(listDiffs(a, a), "");
    EXPECT_THROW(operations::diffTrees(a, tree("")), operations::AddressError);
}

}  // namespace
