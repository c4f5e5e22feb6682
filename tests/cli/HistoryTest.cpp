/// log and watch: who changed what, and what changes now.
#include <nlohmann/json.hpp>

#include "tests/cli/ProjectFixture.hpp"
#include "tests/cli/Watching.hpp"
#include "tests/support/Git.hpp"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using test::expectFailure;
using test::Outcome;
using test::run;
using testing::ElementsAre;
using testing::HasSubstr;

/// A project that is not at the top of its repository.
class HistoryTest : public test::ProjectFixture {
protected:
    std::string git(const std::string& arguments) const { return test::runGit(folder.std(), arguments); }

    void commit(const std::string& subject) const {
        git("add -A");
        git("commit -q -m " + subject);
    }

    void change(std::vector<std::string> arguments, const std::string& subject) const {
        arguments.insert(arguments.end(), {"-q", "-C", root});
        const Outcome outcome = run(arguments);
        ASSERT_EQ(outcome.status, 0) << outcome.err;
        commit(subject);
    }

    /// The subjects of the commits that `log` names, each with the change of its first difference.
    std::vector<std::string> log(std::vector<std::string> arguments, int status = 0) const {
        arguments.insert(arguments.begin(), {"log", root, "--json"});
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, status) << outcome.err;
        std::vector<std::string> lines;
        for (const json& revision : json::parse(outcome.out)) {
            EXPECT_EQ(revision["author"], "a");
            lines.push_back(revision["subject"].get<std::string>() + ' ' +
                            revision["changes"][0]["change"].get<std::string>());
        }
        return lines;
    }
};

TEST_F(HistoryTest, logTellsWhoChangedAPathOrAnAttributeThroughMergesAndConversions) {
    git("init -q -b main");
    init();
    commit("made");
    change({"set", "F:a", "--create", "K=1"}, "added");
    git("checkout -q -b side");
    change({"set", "F:a", "L=1"}, "side");
    change({"set", "F:other", "--create", "X=1"}, "other");
    git("checkout -q main");
    change({"set", "F:a|F:below", "--create", "X=1"}, "below");
    git("merge -q side -m merged");
    change({"convert", "--store", "sqlite"}, "converted");
    change({"set", "F:a", "K=2"}, "again");
    test::writeBytes(folder / "unrelated", "x");
    commit("unrelated");
    change({"convert", "--store", "monolithic", "--folder", ".TolvaneProject"}, "moved");
    git("checkout -q -b evil HEAD~1");
    change({"set", "F:other", "Y=1"}, "aside");
    git("checkout -q main");
    change({"remove", "F:a"}, "removed");

    EXPECT_THAT(log({"F:a"}), ElementsAre("removed removed", "again changed", "side changed", "added added"));
    EXPECT_THAT(log({"F:a", "--attribute", "L"}), ElementsAre("removed removed", "side changed"));
    EXPECT_THAT(log({"F:a", "--below"}),
                ElementsAre("removed removed", "again changed", testing::_, testing::_, "added added"));
    EXPECT_THAT(log({"F:none"}, 1), ElementsAre());
    // A merge has changed no attribute that one of the two has as it is.
    git("checkout -q -b k HEAD~2");
    change({"set", "F:a", "K=3"}, "k");
    git("checkout -q -b l HEAD~1");
    change({"set", "F:a", "L=3"}, "l");
    git("merge -q -s ours --no-commit k");
    change({"set", "F:a", "K=3"}, "both");
    EXPECT_THAT(log({"F:a", "--attribute", "K"}), ElementsAre("k changed", "again changed", "added added"));
    git("checkout -q main");
    const Outcome text = run({"log", root, "F:a", "--attribute", "L"});
    EXPECT_THAT(text.out, HasSubstr("a <a@b>  side\n    ~ F:a\n        ~ node Info\n            + L=\"1\"\n"));

    // A state that cannot be read is not passed over in silence.
    change({"set", "F:b", "--create", "K=1"}, "sound");
    const fs::path core = root / ".TolvaneProject/Project.xml";
    const std::string sound = test::readBytes(core);
    test::writeBytes(core, "<broken");
    commit("broken");
    test::writeBytes(core, sound);
    commit("mended");
    const Outcome damaged = run({"log", root, "F:b"});
    EXPECT_EQ(damaged.status, 1);
    EXPECT_THAT(damaged.out, HasSubstr("sound\n"));
    EXPECT_THAT(damaged.err, HasSubstr("cannot be read"));
}

TEST_F(HistoryTest, logNeedsARepository) {
    init();
    expectFailure(run({"log", root, "F:a"}), 3, {root, "git repository"});
    // What git says in several lines.
    git("init -q");
    test::Surroundings others;
    others.variables["GIT_TEST_ASSUME_DIFFERENT_OWNER"] = "1";
    const Outcome outcome = run({"log", root, "F:a"}, others);
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.err, testing::AllOf(HasSubstr("safe.directory"), testing::Not(HasSubstr("\\n"))));
}

TEST_F(HistoryTest, watchNeedsAPathThatIsThere) {
    init();
    test::Surroundings impatient;
    impatient.prepare = [] { alarm(10); };
    expectFailure(run({"watch", root, "F:none"}, impatient), 3, {"\"F:none\""});
}

TEST_F(HistoryTest, watchPrintsEachChangeOnceWhateverTheStoreBecomes) {
    for (const std::string store : {"fixedPath", "monolithic", "sqlite"}) {
        fs::remove_all(root);
        fs::create_directories(root);
        init(store);
        ASSERT_EQ(run({"add", root, "F:top"}).status, 0);
        const test::Watching watching(root);
        // It is at work once it tells of something.
        for (int i = 0; i < 100 && !watching.hearsSomething(); ++i)
            ASSERT_EQ(run({"set", root, "F:top|F:" + std::to_string(i), "--create", "K=1", "-q"}).status, 0);
        const json first = watching.next();
        EXPECT_EQ(first["change"], "added") << store;
        ASSERT_EQ(run({"set", root, "F:elsewhere", "--create", "K=1", "-q"}).status, 0);
        ASSERT_EQ(run({"convert", root, "--store", store == "sqlite" ? "fixedPath" : "sqlite", "-q"}).status, 0);
        ASSERT_EQ(run({"set", root, "F:top", "Last=1", "-q"}).status, 0);
        json last = first;
        while (!last.is_null() && last["path"] != "F:top") {
            EXPECT_EQ(last["change"], "added");
            last = watching.next();
        }
        EXPECT_EQ(last["node"]["after"]["attributes"], json({{"Last", "1"}})) << store;
        EXPECT_EQ(watching.stop(), 130);
    }
}

}  // namespace
