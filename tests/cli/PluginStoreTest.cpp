/// A store from a plug-in that the command knows nothing of: everything is done with it as with the built-in ones.
#include "tests/cli/ProjectFixture.hpp"

namespace {

namespace fs = std::filesystem;
using test::Outcome;
using testing::HasSubstr;

class PluginStoreTest : public test::ProjectFixture {
protected:
    PluginStoreTest() {
        fs::copy(CLI_TEST_STORE_PLUGIN, test::movedInstallation() / CLI_TEST_PLUGIN_FOLDER,
                 fs::copy_options::overwrite_existing);
    }

    /// Runs the command with the plug-in. @return what it prints
    std::string run(int status, const std::vector<std::string>& arguments) const {
        const Outcome outcome = test::run(arguments, {test::movedInstallation(), {}, {}, {}});
        EXPECT_EQ(outcome.status, status) << outcome.err;
        return outcome.out;
    }

    /// A project of the plug-in's store.
    fs::path make(const std::string& name, const std::vector<std::string>& attributes) const {
        const fs::path project = folder / name;
        fs::create_directory(project);
        run(0, {"init", project, "--store", "plain", "-q"});
        std::vector<std::string> arguments{"set", "--create", "-q", project, "T:a"};
        arguments.insert(arguments.end(), attributes.begin(), attributes.end());
        run(0, arguments);
        return project;
    }
};

TEST_F(PluginStoreTest, isCheckedAndConvertedWithoutALoss) {
    const fs::path project = make("plain", {"k=1", "l=2"});
    const fs::path metadata = project / "resources/project";
    test::writeBytes(metadata / "notes/others.txt", "somebody's");
    EXPECT_THAT(run(0, {"check", project}), HasSubstr("1 path read\n0 problems\n"));
    for (const std::string store : {"sqlite", "plain", "fixedPath", "plain"}) {
        run(0, {"convert", project, "--store", store});
        EXPECT_THAT(run(0, {"locate", project}), HasSubstr("Type        " + store + "\n"));
        EXPECT_EQ(run(0, {"get", project, "T:a", "l"}), "2\n");
        EXPECT_EQ(test::readBytes(metadata / "notes/others.txt"), "somebody's");
        EXPECT_EQ(std::distance(fs::directory_iterator(metadata.parent_path()), {}), 1);
    }
    const auto files = test::readTree(metadata);
    for (const auto& [name, content] : files)
        EXPECT_THAT(name, testing::Not(HasSubstr("T=a"))) << "a file of the store before";
}

TEST_F(PluginStoreTest, isMergedExportedAndImported) {
    const fs::path base = make("base", {"k=1", "l=1"});
    const fs::path ours = make("ours", {"k=2", "l=1"});
    const fs::path theirs = make("theirs", {"k=1", "l=3"});
    run(0, {"merge", base, ours, theirs});
    EXPECT_EQ(run(0, {"get", ours, "T:a", "k"}) + run(0, {"get", ours, "T:a", "l"}), "2\n3\n");
    run(0, {"export", ours, "-o", folder / "all.xml"});
    run(0, {"import", folder / "all.xml", base, "--replace"});
    EXPECT_EQ(run(0, {"diff", base, ours}), "");
    EXPECT_EQ(run(0, {"diff", base, folder / "all.xml"}), "");
}

}  // namespace
