// The command and a store whose content is on a server.

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "project/metadata/FactoryRegistry.hpp"
#include "tests/cli/ProjectFixture.hpp"
#include "tests/cli/StoreContent.hpp"
#include "tests/cli/Watching.hpp"
#include "tests/support/PostgresqlServer.hpp"

using testing::HasSubstr;

namespace {

namespace fs = std::filesystem;

class PostgresqlCommandTest : public test::ProjectFixture {
protected:
    static test::Outcome run(const std::vector<std::string>& arguments) {
        test::Surroundings surroundings;
        for (const char* variable : {"PGSERVICEFILE", "PROJECT_METADATA_SETTINGS"})
            surroundings.variables[variable] = std::getenv(variable);
        return test::run(arguments, surroundings);
    }

    /// What is on the server: projects, and their paths.
    static std::string count() {
        return test::theServer().run(
            "SELECT (SELECT count(*) FROM project_metadata.project) || ' ' ||"
            " (SELECT count(*) FROM project_metadata.path)");
    }

    auto content() const { return test::readContent(*project::metadata::getMetadataManagerFor(test::toPath(root))); }
};

TEST_F(PostgresqlCommandTest, aProjectIsMadeWhereTheUserSays) {
    const std::vector<std::string> init{"init", root, "--store", "postgresql", "--option"};
    const auto with = [&](std::vector<std::string> more) {
        more.insert(more.begin(), init.begin(), init.end());
        return run(more);
    };
    expectFailure(with({"host=example.com"}), 2, {"no option \"host=example.com\"", "service=...", "schema=..."});
    expectFailure(with({"service"}), 2, {"no option \"service\""});
    expectFailure(with({"service=other"}), 3,
                  {"\"other/project_metadata\" is in the user's setting \"AllowedServers\""});
    expectFailure(run({"init", root, "--store", "fixedPath", "--option", "service=test"}), 2, {"no option"});
    EXPECT_TRUE(fs::is_empty(root));
    expectSuccess(with({"service=test", "-q"}), "");
    expectSuccess(run({"set", root, "A:a", "Key=value", "--create", "-q"}), "");
    EXPECT_THAT(run({"show", root, "A:a"}).out, HasSubstr("value"));
    EXPECT_EQ(run({"check", root}).status, 0);
}

TEST_F(PostgresqlCommandTest, aConversionLeavesNothingWhereItWas) {
    init("monolithic");
    for (const char* path : {"A:a", "A:a|B:b", "A:c"})
        expectSuccess(run({"set", root, path, "Key=value", "--create", "-q"}), "");
    const auto before = content();
    const std::string empty = count();
    EXPECT_THAT(run({"convert", root, "--store", "postgresql", "--dry-run"}).out, HasSubstr("Would convert 3 paths"));
    EXPECT_EQ(count(), empty);
    expectFailure(run({"convert", root, "--store", "postgresql", "--option", "service=x"}), 3,
                  {"\"x/project_metadata\""});
    // What has been copied to the server goes too, if the conversion fails after that.
    const fs::path pipe = coreFile.parent_path() / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    expectFailure(run({"convert", root, "--store", "postgresql"}), 3, {"cannot be converted"});
    EXPECT_EQ(count(), empty);
    fs::remove(pipe);

    expectSuccess(run({"convert", root, "--store", "postgresql", "--option", "service=test", "-q"}), "");
    EXPECT_EQ(content(), before);
    EXPECT_NE(count(), empty);
    const fs::path exported = folder / "exported.xml";
    expectSuccess(run({"export", root, "-o", exported, "-q"}), "");
    EXPECT_THAT(test::readBytes(exported), HasSubstr("value"));
    expectSuccess(run({"convert", root, "--store", "fixedPath", "-q"}), "");
    EXPECT_EQ(content(), before);
    EXPECT_EQ(count(), empty);

    // Of a core file that is damaged, nobody knows where it led; what it led to stays there.
    fs::remove_all(root);
    const std::vector<std::string> import{"import",   exported,       root,        "--store", "postgresql",
                                          "--option", "service=test", "--replace", "-q"};
    expectSuccess(run(import), "");
    EXPECT_EQ(content(), before);
    test::writeBytes(coreFile, "<Project");
    expectSuccess(run(import), "");
    EXPECT_EQ(content(), before);
    EXPECT_EQ(std::stoi(count()), std::stoi(empty) + 2);
    fs::remove_all(root);
    expectSuccess(run({"import", exported, root, "-q"}), "");

    expectSuccess(run({"convert", root, "--store", "postgresql", "-q"}), "");
    const std::string full = count();
    expectSuccess(run({"convert", root, "--store", "monolithic", "--keep", "-q"}), "");
    EXPECT_EQ(count(), full);
}

TEST_F(PostgresqlCommandTest, watchTellsWhatOthersDoOnTheServer) {
    expectSuccess(run({"init", root, "--store", "postgresql", "--service", "test", "-q"}), "");
    expectSuccess(run({"add", root, "F:top", "-q"}), "");
    const test::Watching watching(root);
    for (int i = 0; i < 100 && !watching.hearsSomething(); ++i)
        expectSuccess(run({"set", root, "F:top|F:" + std::to_string(i), "--create", "K=1", "-q"}), "");
    auto last = watching.next();
    for (const std::string store : {"postgresql", "fixedPath"}) {
        if (store != "postgresql")
            expectSuccess(run({"convert", root, "--store", store, "-q"}), "");
        expectSuccess(run({"set", root, "F:top", "Last=" + store, "-q"}), "");
        while (!last.is_null() && last["path"] != "F:top")
            last = watching.next();
        EXPECT_EQ(last["node"]["after"]["attributes"]["Last"], store);
        last = {{"path", ""}};
    }
    EXPECT_EQ(watching.stop(), 130);
}

TEST_F(PostgresqlCommandTest, checkTellsDamagedRowsAndRepairLeavesThem) {
    expectSuccess(run({"init", root, "--store", "postgresql", "--option", "service=test", "-q"}), "");
    for (const char* path : {"A:a", "A:a|B:b", "A:c"})
        expectSuccess(run({"set", root, path, "Key=value", "--create", "-q"}), "");
    const std::string core = test::readBytes(coreFile);
    const std::size_t at = core.find("Project=\"") + 9;
    const std::string project = " project = '" + core.substr(at, core.find('"', at) - at) + "'";
    const auto sql = [](const std::string& text) {
        return test::theServer().run("SET search_path = project_metadata; " + text);
    };
    const std::string rows = "SELECT md5(string_agg(path::text, ';' ORDER BY id)) FROM path WHERE" + project;
    sql("CREATE TABLE sound AS SELECT * FROM path WHERE" + project);
    EXPECT_EQ(run({"check", root, "--repair"}).status, 0);
    for (const auto& [damage, problem] : std::vector<std::pair<std::string, std::string>>{
             {"UPDATE path SET node = '\\xff' WHERE location = 'b'", "\"B:b\", has a node that cannot be read"},
             {"UPDATE path SET location = 'x' WHERE location = 'b'", "\"B:x\", says of its step"},
             {"UPDATE path SET parent = gen_random_uuid() WHERE location = 'a'", "has no way to the root path"},
             {"DELETE FROM path WHERE parent IS NULL", "the row of the root path is missing"}}) {
        sql(damage + " AND" + project);
        const std::string before = sql(rows);
        for (const std::string option : {"-v", "--repair"}) {
            const auto outcome = run({"check", root, option});
            EXPECT_EQ(outcome.status, 1) << damage;
            EXPECT_THAT(outcome.out, HasSubstr(problem));
            EXPECT_THAT(outcome.out, HasSubstr("service \"test\""));
        }
        EXPECT_EQ(sql(rows), before) << damage;
        sql("DELETE FROM path WHERE" + project + "; INSERT INTO path SELECT * FROM sound");
    }
    sql("DROP TABLE sound");
    EXPECT_EQ(run({"check", root}).status, 0);
}

}  // namespace
