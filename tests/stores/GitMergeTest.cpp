// Projects of the kind "fixedPath" under version control: the work of two people merges.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "project/metadata/MetadataCopy.hpp"
#include "project/metadata/MetadataDamage.hpp"
#include "tests/stores/StoreHelpers.hpp"
#include "tests/support/Git.hpp"

using namespace test;

namespace {

/// A project in a repository.
class GitMergeTest : public testing::Test {
protected:
    GitMergeTest() { git("init -q -b base"); }

    std::unique_ptr<MetadataManager> open() const { return openStore(u"fixedPath", folder_.path()); }

    std::string git(const std::string& arguments) const { return runGit(folder_.std(), arguments); }

    void commitAll() const {
        git("add -A");
        git("commit -q -m change");
    }

    /// What `change` does to the project as it is on the branch "base", on a branch of its own.
    template <class Change>
    void branch(const std::string& name, const Change& change) const {
        git("checkout -q -b " + name + " base");
        change(*open());
        commitAll();
    }

    /// The project with `theirs` merged into `ours`.
    std::unique_ptr<MetadataManager> merge(const std::string& ours, const std::string& theirs) const {
        git("checkout -q -B merged " + ours);
        git("merge -q --no-edit " + theirs);
        return open();
    }

    /// Saves everything that is there, as a program does that knows no better.
    void saveUnchanged(MetadataManager& store) const { project::metadata::copyMetadata(*open(), store); }

    static std::string listDamage(const MetadataManager& store) {
        std::string files;
        for (const auto& damage : dynamic_cast<const project::metadata::DamageReporter&>(store).findDamage())
            files += toStd(damage.file).filename().string() + " ";
        return files;
    }

    TempFolder folder_;
};

/// `paths`, of the folder "f", as the whole content.
void arrange(MetadataManager& store, const std::vector<std::u16string>& names) {
    std::vector<MetadataPath> paths{MetadataPath()};
    for (const std::u16string& name : names)
        paths.push_back(path({u"f", name}));
    store.setPaths(paths);
}

TEST_F(GitMergeTest, ChangesOfTwoPeopleMerge) {
    for (const char16_t* name : {u"a", u"b", u"c", u"d", u"e"})
        open()->setNode(path({u"f", name}), *node(u"base"));
    commitAll();
    branch("ours", [this](MetadataManager& store) {
        store.setNode(path({u"f", u"a"}), *node(u"ours"));
        arrange(store, {u"a", u"b", u"c", u"ours between", u"d"});  // "e" goes
        store.setNode(path({u"f", u"ours between"}), *node(u"ours"));
        store.setNode(path({u"f", u"ours last"}), *node(u"ours"));
        saveUnchanged(store);
        store.setNode(path({u"g ours", u"x"}), *node(u"ours"));
    });
    branch("theirs", [this](MetadataManager& store) {
        saveUnchanged(store);
        arrange(store, {u"d", u"a", u"theirs between", u"c", u"e"});  // "b" goes, "d" moves to the front
        store.setNode(path({u"f", u"c"}), *node(u"theirs"));
        store.setNode(path({u"f", u"theirs last"}), *node(u"theirs"));
        store.setNode(path({u"f"}), *node(u"theirs"));
    });
    branch("others", [](MetadataManager& store) {
        arrange(store, {u"a", u"b", u"c", u"others between", u"d", u"e"});
        store.setNode(path({u"f", u"d"}), *node(u"others"));
    });

    const auto expectMerged = [this](bool swap, const std::string& other, const std::string& content) {
        const auto store = swap ? merge(other, "ours") : merge("ours", other);
        EXPECT_EQ(outline(*store), content) << other << (swap ? " with ours merged in" : " merged into ours");
        EXPECT_EQ(listDamage(*store), "");
        saveUnchanged(*store);
        EXPECT_EQ(git("status --porcelain --ignored"), "");
    };
    for (const bool swap : {false, true}) {
        expectMerged(
            swap, "theirs",
            "f(theirs) f/d(base) f/a(ours) f/theirs between f/c(theirs) f/ours between(ours) f/ours last(ours) "
            "f/theirs last(theirs) g ours g ours/x(ours)");
        expectMerged(swap, "others",
                     "f f/a(ours) f/b(base) f/c(base) f/others between f/ours between(ours) f/d(others) "
                     "f/ours last(ours) g ours g ours/x(ours)");
    }
}

/// Nobody's work is lost when a folder is removed below which somebody else adds something.
TEST_F(GitMergeTest, AdditionsBelowARemovedFolderStayInReach) {
    open()->setNode(path({u"f", u"a"}), *node(u"base"));
    open()->setNode(path({u"g"}), *node(u"base"));
    commitAll();
    branch("ours", [](MetadataManager& store) { store.removePath(path({u"f"})); });
    branch("theirs", [](MetadataManager& store) { store.setNode(path({u"f", u"new"}), *node(u"theirs")); });
    for (const bool swap : {false, true}) {
        const auto store = swap ? merge("theirs", "ours") : merge("ours", "theirs");
        EXPECT_THAT(outline(*store), testing::HasSubstr("f f/new(theirs)"));
        EXPECT_EQ(listDamage(*store), "t=f.xml ");
        EXPECT_EQ(git("status --porcelain --ignored"), "");
    }
}

}  // namespace
