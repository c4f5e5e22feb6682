/// project-metadata conform: whether the stores of a bundle keep the contract.
#include <nlohmann/json.hpp>

#include "tests/cli/ProjectFixture.hpp"

namespace {

namespace fs = std::filesystem;
using test::expectFailure;
using test::Outcome;
using test::run;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::MatchesRegex;

using ConformTest = test::ProjectFixture;

TEST_F(ConformTest, correctStoresPassEveryRule) {
    const fs::path plugins = fs::path(CLI_TEST_PREFIX) / CLI_TEST_PLUGIN_FOLDER;
    test::Surroundings surroundings;
    surroundings.folder = plugins;
    surroundings.variables["TMPDIR"] = test::memoryFolder();
    // One that is built with the installed package, and one that lies where the library looks, by a relative path.
    for (const std::string bundle : {CLI_TEST_STORE_PLUGIN, "monolithic.so"}) {
        const Outcome outcome = run({"conform", bundle}, surroundings);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.err, "");
        EXPECT_THAT(outcome.out, MatchesRegex("(passed  [A-Za-z]+\n)+[0-9]+ passed, 0 failed\n"));
    }
}

TEST_F(ConformTest, brokenStoreFailsWithTheRulesAndTheReasons) {
    // Its factory answers null for a store.
    const Outcome outcome = run({"conform", CLI_TEST_PLUGIN});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.out, HasSubstr("passed  FactoryNamesItself\nFAILED  ReadingWritesNothing: "));
    EXPECT_THAT(outcome.out,
                HasSubstr("FAILED  SetNodeReplacesOneNode: createManager: expected a store, found null\n"));
    EXPECT_THAT(outcome.out, ContainsRegex("\n1 passed, [0-9]+ failed\n$"));

    const Outcome two =
        run({"conform", CLI_TEST_PLUGIN, "--rule", "ReadingWritesNothing", "--rule", "FactoryNamesItself"});
    EXPECT_THAT(two.out, MatchesRegex("FAILED  Reading[^\n]*\npassed  FactoryNamesItself\n1 passed, 1 failed\n"));
    expectFailure(run({"conform", CLI_TEST_PLUGIN, "--rule", "Reading"}), 2, {"no rule \"Reading\""});

    const Outcome asJson = run({"conform", CLI_TEST_PLUGIN, "--json"});
    EXPECT_EQ(asJson.status, 1);
    const auto rules = nlohmann::json::parse(asJson.out);
    EXPECT_EQ(rules[0]["rule"], "FactoryNamesItself");
    EXPECT_EQ(rules[0]["outcome"], "passed");
    EXPECT_EQ(rules[0]["message"], nullptr);
    EXPECT_EQ(rules[1]["outcome"], "failed");
    EXPECT_THAT(outcome.out, HasSubstr(rules[1]["message"].get<std::string>()));
    EXPECT_EQ(rules.size(), static_cast<std::size_t>(std::count(outcome.out.begin(), outcome.out.end(), '\n')) - 1);
}

TEST_F(ConformTest, whatIsNoStorePluginIsNamed) {
    expectFailure(run({"conform", folder / "none.so"}), 3, {folder / "none.so"});
    test::writeBytes(folder / "text.so", "This is no shared object.\n");
    expectFailure(run({"conform", folder / "text.so"}), 3, {folder / "text.so"});
    expectFailure(run({"conform", CLI_TEST_EMPTY_BUNDLE}), 3, {CLI_TEST_EMPTY_BUNDLE, "registers no"});
    test::Surroundings failing;
    failing.variables["METADATA_TEST_PLUGIN"] = "failing";
    expectFailure(run({"conform", CLI_TEST_PLUGIN}, failing), 3, {CLI_TEST_PLUGIN, "failing on purpose"});
}

}  // namespace
