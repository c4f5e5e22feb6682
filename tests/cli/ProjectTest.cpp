/// init, locate and uuid: where a project's metadata is.
#include <nlohmann/json.hpp>

#include "tests/cli/ProjectFixture.hpp"

namespace {

namespace fs = std::filesystem;
using test::expectFailure;
using test::expectSuccess;
using test::Outcome;
using test::readTree;
using test::run;
using test::Surroundings;
using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;

using InitCommandTest = test::ProjectFixture;
using LocateCommandTest = test::ProjectFixture;
using UuidCommandTest = test::ProjectFixture;

std::string location(const fs::path& coreFile, const std::string& type) {
    return "Folder      " + coreFile.parent_path().native() + "\nCore file   " + coreFile.native() + "\nType        " +
           type + "\n";
}

TEST_F(InitCommandTest, createsMetadataInTheFolderAndTheStoreAskedFor) {
    for (const std::string store : {"fixedPath", "monolithic"}) {
        for (const std::string name : {"resources/project", ".TolvaneProject", "_TolvaneProject"}) {
            const fs::path project = folder / (store + fs::path(name).filename().native());
            EXPECT_EQ(run({"init", project, "--dry-run"}).status, 0);
            EXPECT_FALSE(fs::exists(project));
            expectSuccess(run({"init", project, "--store", store, "--folder", name}),
                          "Metadata of type \"" + store + "\" created in " + (project / name).native() + "\n");
            expectSuccess(run({"locate", project}), location(project / name / "Project.xml", store));
            expectSuccess(run({"tree", project}), project.native() + "\n");
        }
    }
}

TEST_F(InitCommandTest, takesTheCurrentFolderAndTheSettingsWithoutArguments) {
    Surroundings surroundings;
    surroundings.folder = root;
    surroundings.variables["PROJECT_METADATA_SETTINGS"] = folder / "settings.ini";
    test::writeBytes(folder / "settings.ini",
                     "[korvex.project.creation]\n"
                     "DefaultMetadataRoot = resources/_Project\nDefaultMetadataManager = monolithic\n");
    EXPECT_EQ(run({"init"}, surroundings).status, 0);
    expectSuccess(run({"locate", root}), location(root / "resources/_Project/Project.xml", "monolithic"));
}

TEST_F(InitCommandTest, refusesFoldersInWhichNoProjectWouldBeFound) {
    for (const std::string name : {"", ".", "../elsewhere", "resources/project/", "resources/.Project"})
        expectFailure(run({"init", root, "--folder", name}), 2, {'"' + name + '"', "_TolvaneProject"});

    Surroundings surroundings;
    surroundings.variables["PROJECT_METADATA_SETTINGS"] = folder / "settings.ini";
    test::writeBytes(folder / "settings.ini", "[korvex.project.creation]\nDefaultMetadataRoot = metadata\n");
    expectFailure(run({"init", root}, surroundings), 3, {"\"metadata\"", "DefaultMetadataRoot", "resources/_Project"});
    test::writeBytes(folder / "settings.ini", "[korvex.project.creation]\nDefaultMetadataManager = sqlit\n");
    expectFailure(run({"init", root}, surroundings), 3, {"\"sqlit\"", "DefaultMetadataManager", "monolithic"});
    EXPECT_EQ(readTree(root).size(), 0U);
}

TEST_F(InitCommandTest, refusesUnknownStores) {
    expectFailure(run({"init", root, "--store", "fixedpath"}), 2, {"\"fixedpath\"", "fixedPath, monolithic"});
    EXPECT_EQ(readTree(root).size(), 0U);
}

TEST_F(InitCommandTest, refusesAProjectThatHasMetadata) {
    init("monolithic");
    const auto before = readTree(root);
    expectFailure(run({"init", root, "--folder", ".TolvaneProject"}), 3, {coreFile, "\"monolithic\""});
    test::writeBytes(coreFile, "damaged");
    expectFailure(run({"init", root}), 3, {coreFile, "cannot be read"});
    EXPECT_EQ(readTree(root).size(), before.size());
    EXPECT_EQ(test::readBytes(coreFile), "damaged");
}

TEST_F(LocateCommandTest, namesTheCoreFilesThatAreNotUsed) {
    init();
    const fs::path other = root / ".TolvaneProject/Project.xml";
    test::writeBytes(other, "<Project MetadataType=\"monolithic\"/>");
    expectSuccess(run({"locate", root}), location(coreFile, "fixedPath") + "Not used    " + other.native() + "\n");
    EXPECT_EQ(nlohmann::json::parse(run({"locate", root, "--json"}).out),
              nlohmann::json({{"folder", coreFile.parent_path().native()},
                              {"coreFile", coreFile.native()},
                              {"type", "fixedPath"},
                              {"notUsed", {other.native()}}}));
    EXPECT_EQ(run({"scan", root}).status, 0);
    EXPECT_EQ(test::readBytes(other), "<Project MetadataType=\"monolithic\"/>");
}

TEST_F(LocateCommandTest, showsNamesEscaped) {
    const fs::path odd = folder / "a\\b\x1b[2J\xe4";
    fs::create_directory(odd);
    ASSERT_EQ(run({"init", odd}).status, 0);
    EXPECT_THAT(run({"locate", odd}).out, HasSubstr("/a\\\\b\\u001B[2J\\xE4/resources/project\n"));
}

TEST_F(UuidCommandTest, givesAProjectUuidsAndListsThem) {
    init();
    expectFailure(run({"uuid", root}), 1, {root, "--new"});
    const std::string uuid = "6BA7b810-9dad-11d1-80b4-00c04fd430c8";
    const std::string line = uuid + "  " + (coreFile.parent_path() / ("uuid-" + uuid + ".xml")).native() + "\n";
    auto before = readTree(root);
    expectSuccess(run({"uuid", root, uuid, "--dry-run"}), "Would write " + line);
    EXPECT_EQ(readTree(root), before);
    expectSuccess(run({"uuid", root, uuid}), line);
    before = readTree(root);
    expectSuccess(run({"uuid", root, "6ba7b810-9DAD-11d1-80b4-00c04fd430c8"}), line);
    EXPECT_EQ(readTree(root), before);

    const Outcome fresh = run({"uuid", root, "--new"});
    EXPECT_EQ(fresh.status, 0);
    const std::string form = "[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}";
    EXPECT_THAT(fresh.out, MatchesRegex(form + "  .*/uuid-" + form + "\\.xml\n"));
    const auto listed = nlohmann::json::parse(run({"uuid", root, "--json"}).out);
    ASSERT_EQ(listed.size(), 2U);
    for (const auto& entry : listed)
        EXPECT_EQ(entry["file"],
                  coreFile.parent_path().native() + "/uuid-" + entry["uuid"].get<std::string>() + ".xml");
    const Outcome list = run({"uuid", root});
    EXPECT_THAT(list.out, AllOf(HasSubstr(line), HasSubstr(fresh.out)));

    test::writeBytes(coreFile.parent_path() / "uuid-1.xml", "<uuid/>");
    const Outcome malformed = run({"uuid", root});
    EXPECT_EQ(malformed.status, 1);
    EXPECT_EQ(malformed.out, list.out);
    EXPECT_THAT(malformed.err, HasSubstr((coreFile.parent_path() / "uuid-1.xml").native()));
    expectFailure(run({"uuid", root, uuid, "--new"}), 2, {"--new"});
}

TEST_F(UuidCommandTest, takesNoPathForAMarker) {
    init();
    ASSERT_EQ(run({"set", root, "--create", "uuid-x:1", "k=1"}).status, 0);
    EXPECT_THAT(run({"uuid", root}).err, testing::Not(HasSubstr("uuid-x")));
    EXPECT_EQ(run({"check", root}).status, 0);
}

TEST_F(UuidCommandTest, refusesWhatIsNoUuid) {
    init();
    const auto before = readTree(root);
    for (const std::string uuid : {"", "x", "../../evil", "6ba7b810-9dad-11d1-80b4-00c04fd430c",
                                   "6ba7b810-9dad-11d1-80b4-00c04fd430c8a", "6ba7b8109dad-11d1-80b4-00c04fd430c8-",
                                   "6ba7b810-9dad-11d1-80b4-00c04fd430cg", "{6ba7b810-9dad-11d1-80b4-00c04fd430c8}"})
        expectFailure(run({"uuid", root, uuid}), 2, {'"' + uuid + '"'});
    EXPECT_EQ(readTree(root), before);
}

TEST_F(InitCommandTest, whatIsNoProjectHasAStatusOfItsOwn) {
    test::writeBytes(folder / "file", "");
    test::writeBytes(root / "resources/project/other.xml", "<Info/>");
    const auto before = readTree(root);
    const std::map<std::string, std::string> reasons{{root, "holds no project metadata"},
                                                     {folder / "absent", "No such file or directory"},
                                                     {folder / "file", "is no folder"},
                                                     {"", "No such file or directory"}};
    for (const auto& [path, reason] : reasons) {
        expectFailure(run({"locate", path}), 4, {'"' + path + '"', reason});
        // What is no folder could be another argument, but there is no project around the current folder either.
        for (const std::string command : {"tree", "scan", "uuid"})
            expectFailure(run({command, path}), 4, {'"' + path + '"', path == root ? reason : "is no folder"});
        expectFailure(run({"export", path, "-o", folder / "out.xml"}), 4, {'"' + path + '"', reason});
        if (path != root && path != folder / "absent")
            expectFailure(run({"init", path}), 4, {'"' + path + '"', reason});
    }
    EXPECT_FALSE(fs::exists(folder / "out.xml"));
    EXPECT_EQ(readTree(root), before);
}

}  // namespace
