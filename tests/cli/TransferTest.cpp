/// export, import and convert: metadata moves between files and stores without losing anything.
#include <fcntl.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "tests/cli/ProjectFixture.hpp"
#include "tests/cli/StoreContent.hpp"

namespace {

namespace fs = std::filesystem;
namespace pm = project::metadata;
using test::expectFailure;
using test::expectSuccess;
using test::readTree;
using test::run;
using testing::HasSubstr;

std::vector<test::StoredPath> contentOf(const fs::path& root) {
    const auto store = pm::getMetadataManagerFor(test::toPath(root));
    auto content = test::readContent(*store);
    content.push_back({{}, store->hasNode({}) ? test::describe(*store->getNode({})) : ""});
    return content;
}

std::string typeOf(const fs::path& coreFile) {
    const std::string core = test::readBytes(coreFile);
    const auto at = core.find("MetadataType=\"") + 14;
    return core.substr(at, core.find('"', at) - at);
}

using ImportTest = test::ProjectFixture;
using ConvertTest = test::ProjectFixture;

class TransferTest : public test::ProjectFixture, public testing::WithParamInterface<const char*> {
protected:
    /// Content that is easily lost: two paths with one text, branches, a node of the root, an order, odd names.
    TransferTest() {
        init(GetParam());
        const auto store = pm::getMetadataManagerFor(test::toPath(root));
        for (const auto& path : {std::vector<pm::PathElement>{{u"F", u"z"}},
                                 {{u"F", u"b|F:c"}},
                                 {{u"F", u"b"}, {u"F", u"c"}},
                                 {{u"F", u"\u202e\t<&\""}},
                                 {{u"F", u"b"}}}) {
            pm::MetadataNodeSpecification node(u"Note");
            node.put(u"Steps", std::u16string(path.size(), u'+') + path.front().getLocation().substr(0, 1));
            node.createChildNode(u"Child").put(u"Text", u"a\nb");
            store->setNode(pm::MetadataPath(path), node);
        }
        store->setNode({}, pm::MetadataNodeSpecification(u"Top"));
        store->addPath(pm::MetadataPath({{u"F", u"branch"}, {u"F", u"leaf"}}));
        content = contentOf(root);
    }

    const fs::path file = folder / "exported.xml";
    std::vector<test::StoredPath> content;
};

INSTANTIATE_TEST_SUITE_P(Stores, TransferTest, testing::Values("fixedPath", "monolithic", "sqlite"), test::nameOfStore);

TEST_P(TransferTest, whatIsExportedIsImportedExactlyIntoEveryStore) {
    test::writeBytes(file, "old");
    expectSuccess(run({"export", root, file, "--force", "--dry-run", "-q"}), "");
    EXPECT_EQ(test::readBytes(file), "old");
    expectSuccess(run({"export", root, file, "--force", "-q"}), "");
    for (const std::string store : {"fixedPath", "monolithic", "sqlite"}) {
        const fs::path other = folder / store;
        fs::create_directory(other);
        expectSuccess(run({"import", file, other, "--store", store, "--dry-run", "-q"}), "");
        EXPECT_TRUE(fs::is_empty(other));
        expectSuccess(run({"import", file, other, "--store", store, "--folder", "_TolvaneProject", "-q"}), "");
        EXPECT_EQ(typeOf(other / "_TolvaneProject/Project.xml"), store);
        EXPECT_EQ(contentOf(other), content);
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.std()), {}), 5);  // no scratch folder is left
}

TEST_P(TransferTest, anImportReplacesContentOnlyIfToldTo) {
    ASSERT_EQ(run({"export", root, file}).status, 0);
    ASSERT_EQ(run({"set", root, "F:branch", "Stale=1"}).status, 0);
    ASSERT_EQ(run({"set", root, "F:z", "Changed=1"}).status, 0);
    ASSERT_EQ(run({"remove", root, R"(F:b\|F:c)"}).status, 0);
    ASSERT_EQ(run({"add", root, "F:extra|F:more"}).status, 0);
    const auto before = readTree(root);
    expectFailure(run({"import", file, root}), 3, {root, "--replace"});
    expectFailure(run({"import", file, root, "--replace", "--store", "fixedPath"}), 2, {"convert"});
    const nlohmann::json expected{{"added", 1}, {"updated", 2}, {"removed", 2}};
    EXPECT_EQ(nlohmann::json::parse(run({"import", file, root, "--replace", "--json", "--dry-run"}).out), expected);
    EXPECT_EQ(readTree(root), before);
    EXPECT_EQ(nlohmann::json::parse(run({"import", file, root, "--replace", "--json"}).out), expected);
    EXPECT_EQ(contentOf(root), content);
}

TEST_P(TransferTest, aConversionKeepsEverythingAndTheFilesOfOthers) {
    const fs::path metadata = coreFile.parent_path();
    const std::map<std::string, std::string> foreign{{".gitattributes", "*.xml text"},
                                                     {"notes/deep/a.txt", "1"},
                                                     {"uuid-6ba7b810-9dad-11d1-80b4-00c04fd430c8.xml", "<uuid/>"}};
    for (const auto& [name, bytes] : foreign)
        test::writeBytes(metadata / name, bytes);
    expectFailure(run({"convert", root, "--to", GetParam()}), 2, {GetParam(), "already"});

    for (const std::string store : {"sqlite", "fixedPath", "monolithic", "fixedPath"}) {
        if (store == typeOf(coreFile))
            continue;
        const auto before = readTree(root);
        EXPECT_THAT(run({"convert", root, "--to", store, "--dry-run"}).out, HasSubstr("Would convert 7 paths"));
        EXPECT_EQ(readTree(root), before);
        expectSuccess(run({"convert", root, "--to", store, "-q"}), "");
        EXPECT_EQ(typeOf(coreFile), store);
        EXPECT_EQ(contentOf(root), content);
        for (const auto& [name, bytes] : foreign)
            EXPECT_EQ(test::readBytes(metadata / name), bytes);
        EXPECT_EQ(std::distance(fs::directory_iterator(root / "resources"), {}), 1);
    }
    const auto last = readTree(metadata);
    const std::string type = typeOf(coreFile);
    const std::string other = type == "sqlite" ? "monolithic" : "sqlite";
    expectSuccess(run({"convert", root, "--to", other, "--keep", "--folder", ".TolvaneProject", "-q"}), "");
    EXPECT_EQ(readTree(metadata.native() + '.' + type), last);
    EXPECT_EQ(contentOf(root), content);
}

TEST_F(ImportTest, namesTheFileThatItRefuses) {
    init();
    const fs::path file = folder / "exported.xml";
    ASSERT_EQ(run({"export", root, file}).status, 0);
    const auto before = readTree(root);
    const std::string whole = test::readBytes(file);
    const std::vector<std::pair<std::string, std::string>> damages{
        {whole.substr(0, whole.size() / 2), "XML"},
        {"<Project/>", "no type"},
        {"<Project MetadataType=\"fixedPath\"/>", "\"fixedPath\""}};
    for (const auto& [bytes, cause] : damages) {
        test::writeBytes(file, bytes);
        expectFailure(run({"import", file, root, "--replace"}), 3, {file, cause});
    }
    expectFailure(run({"import", folder / "absent", root, "--replace"}), 3, {folder / "absent"});
    test::writeBytes(file, "<Project MetadataType=\"monolithic\"><Other/></Project>");
    expectFailure(run({"import", file, root, "--replace"}), 3,
                  {"project-metadata: \"" + file.native() + "\" is damaged"});
    EXPECT_EQ(readTree(root), before);
}

TEST_F(ConvertTest, refusesToLoseSomethingAndLeavesTheProjectAsItWas) {
    init();
    ASSERT_EQ(run({"add", root, "F:0|F:1|F:2|F:3|F:4|F:5"}).status, 0);
    // A node that has room in a file of its own, and not where the paths above it are elements too.
    const fs::path file = coreFile.parent_path() / "F=0/F=1/F=2/F=3/F=4/F=5.xml";
    const std::string bytes = test::readBytes(file);
    std::string node = "<n/>";
    for (int i = 0; i < 250; ++i)
        node = "<n>" + node + "</n>";
    test::writeBytes(file, bytes.substr(0, bytes.rfind("/>")) + "><Node>" + node + "</Node></Path>\n");
    const auto before = readTree(root);
    expectFailure(run({"convert", root, "--to", "monolithic"}), 3, {root, "nested"});
    EXPECT_EQ(readTree(root), before);

    // A file of somebody else that the new store would take for its own.
    ASSERT_EQ(run({"convert", root, "--to", "sqlite"}).status, 0);
    ASSERT_EQ(run({"remove", root, "F:0"}).status, 0);
    test::writeBytes(coreFile.parent_path() / "F=1.xml", "<Path Type=\"F\" Location=\"1\" Rank=\"a\"/>");
    const auto foreign = readTree(root);
    expectFailure(run({"convert", root, "--to", "fixedPath"}), 3, {"project-metadata: The file \"F=1.xml\""});
    EXPECT_EQ(readTree(root), foreign);
}

TEST_F(ConvertTest, keepsWhatAnotherProgramMayBeChanging) {
    init("sqlite");
    ASSERT_EQ(run({"set", root, "--create", "F:0", "k=1"}).status, 0);
    // As SQLite does for as long as a program has a database open with its log on.
    const int database = open((coreFile.parent_path() / "metadata.db").c_str(), O_RDONLY | O_CLOEXEC);
    struct flock lock {};
    lock.l_type = F_RDLCK;
    lock.l_start = 0x40000002;
    lock.l_len = 510;
    ASSERT_EQ(fcntl(database, F_OFD_SETLK, &lock), 0);
    const fs::path old = coreFile.parent_path().native() + ".sqlite";
    expectFailure(run({"convert", root, "--to", "monolithic"}), 1, {"is converted", old / "metadata.db"});
    close(database);
    EXPECT_TRUE(fs::exists(old / "metadata.db"));
    EXPECT_EQ(run({"get", root, "F:0", "k"}).out, "1\n");
}

}  // namespace
