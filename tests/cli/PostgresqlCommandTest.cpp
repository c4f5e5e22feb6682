// The command and a store whose content is on a server.

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "project/metadata/FactoryRegistry.hpp"
#include "tests/cli/ProjectFixture.hpp"
#include "tests/cli/StoreContent.hpp"
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

}  // namespace
