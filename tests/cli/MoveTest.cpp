/// move: what comes along, what stays where it is, and what is refused.
#include "tests/cli/StoreFixture.hpp"

namespace {

using test::expectFailure;
using test::readTree;
using test::run;
using testing::ElementsAre;
using testing::HasSubstr;

using MoveCommandTest = test::StoreFixture;

INSTANTIATE_TEST_SUITE_P(Stores, MoveCommandTest, testing::Values("fixedPath", "monolithic", "sqlite"),
                         test::nameOfStore);

TEST_P(MoveCommandTest, aMovedPathKeepsNodesAndOrderAndLeavesItsTwinAlone) {
    // "F:b|F:c" is the text of two paths.
    for (const std::string path : {"F:z", "F:b", R"(F:b\|F:c)", "F:b|F:c", "F:b|F:a", "F:a"})
        succeed("set", {path, "--create", "Id=" + path});
    const auto expectMoved = [&](const std::string& from, const std::string& to) {
        EXPECT_THAT(run({"move", root, from, to}).out, HasSubstr("from " + from + " to " + to + "\n"));
    };
    expectMoved("F:b", "F:new");
    EXPECT_THAT(content(), ElementsAre("F:z Info Id=F:z", "F:new Info Id=F:b", R"(F:b|F:c Info Id=F:b\|F:c)",
                                       "F:a Info Id=F:a", "F:new|F:c Info Id=F:b|F:c", "F:new|F:a Info Id=F:b|F:a"));
    expectMoved(R"(F:b\|F:c)", "F:z|F:d");
    expectMoved("F:new", "F:z|F:b");
    EXPECT_THAT(content(),
                ElementsAre("F:z Info Id=F:z", "F:a Info Id=F:a", R"(F:z|F:d Info Id=F:b\|F:c)", "F:z|F:b Info Id=F:b",
                            "F:z|F:b|F:c Info Id=F:b|F:c", "F:z|F:b|F:a Info Id=F:b|F:a"));

    // A leaf, as the last of its siblings too; in one edit with what needs all paths.
    expectMoved("F:z|F:b|F:a", "F:z|F:b|F:A");
    expectMoved("F:z|F:d", "F:a|F:d");
    ASSERT_EQ(
        run({"edit", root, "-"}, test::withInput("move F:a|F:d F:e\nset F:e Id=e\nadd F:f --before F:e\n")).status, 0);
    EXPECT_THAT(content(),
                ElementsAre("F:z Info Id=F:z", "F:a Info Id=F:a", "F:f", "F:e Info Id=e", "F:z|F:b Info Id=F:b",
                            "F:z|F:b|F:c Info Id=F:b|F:c", "F:z|F:b|F:A Info Id=F:b|F:a"));

    const auto before = readTree(root);
    expectFailure(run({"move", root, "F:x", "F:y"}), 3, {"\"F:x\""});
    expectFailure(run({"move", root, "F:z", "F:a"}), 3, {"\"F:a\" already"});
    expectFailure(run({"move", root, "F:z", "F:z|F:y"}), 2, {"into itself"});
    expectFailure(run({"move", root, "F:z", "F:x|F:y"}), 3, {"\"F:x\""});
    expectFailure(run({"move", root, "/", "F:y"}), 2, {"root path"});
    EXPECT_EQ(readTree(root), before);
}

}  // namespace
