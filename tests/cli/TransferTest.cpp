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
    expectSuccess(run({"export", root, "-o", file, "--replace", "--dry-run", "-q"}), "");
    EXPECT_EQ(test::readBytes(file), "old");
    expectSuccess(run({"export", root, "-o", file, "--replace", "-q"}), "");
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
    ASSERT_EQ(run({"export", root, "-o", file}).status, 0);
    ASSERT_EQ(run({"set", root, "F:branch", "Stale=1"}).status, 0);
    ASSERT_EQ(run({"set", root, "F:z", "Changed=1"}).status, 0);
    ASSERT_EQ(run({"remove", root, R"(F:b\|F:c)"}).status, 0);
    ASSERT_EQ(run({"add", root, "F:extra|F:more"}).status, 0);
    const auto before = readTree(root);
    expectFailure(run({"import", file, root}), 3, {root, "--replace"});
    expectFailure(run({"import", file, root, "--replace", "--store", "fixedPath"}), 2, {"convert"});
    const nlohmann::json expected{{"added", 1}, {"updated", 2}, {"removed", 2}, {"damaged", nullptr}};
    EXPECT_EQ(nlohmann::json::parse(run({"import", file, root, "--replace", "--json", "--dry-run"}).out), expected);
    EXPECT_EQ(readTree(root), before);
    EXPECT_EQ(nlohmann::json::parse(run({"import", file, root, "--replace", "--json"}).out), expected);
    EXPECT_EQ(contentOf(root), content);
}

TEST_P(TransferTest, anImportReplacesWhatIsDamagedAndKeepsIt) {
    const std::string store = GetParam();
    ASSERT_EQ(run({"export", root, "-o", file}).status, 0);
    const fs::path metadata = coreFile.parent_path();
    const fs::path whole = folder / "whole";
    const std::string uuid = "uuid-6ba7b810-9dad-11d1-80b4-00c04fd430c8.xml";
    test::writeBytes(metadata / uuid, "<uuid/>");
    test::writeBytes(metadata / "notes/mine.txt", "note");
    fs::copy(root, whole, fs::copy_options::recursive);
    std::size_t damages = 0;
    for (const auto& [name, bytes] : readTree(metadata)) {
        if (name.back() == '/' || name == uuid || name == "notes/mine.txt")
            continue;
        for (const std::string& damage : {bytes.substr(0, bytes.size() / 2), std::string(), std::string("<gone>")}) {
            SCOPED_TRACE(name + ": " + damage.substr(0, 20));
            fs::remove_all(root);
            fs::copy(whole, root, fs::copy_options::recursive);
            if (damage == "<gone>" && name == "Project.xml" && store != "monolithic")
                fs::remove(coreFile);
            else
                test::writeBytes(metadata / name, damage);
            const auto before = readTree(metadata);
            std::vector<std::string> line{"import", file, root, "--replace", "--json"};
            // Where nobody knows other files, nothing tells what it was.
            if (store == "monolithic" && damage.size() < bytes.size() / 2) {
                expectFailure(run(line), 3, {coreFile, "--store"});
                line.insert(line.end(), {"--store", store});
            }
            std::vector<std::string> dry = line;
            dry.erase(dry.begin() + 4);
            dry.push_back("--dry-run");
            EXPECT_THAT(run(dry).out, HasSubstr("would be moved to " + metadata.native() + ".damaged"));
            EXPECT_EQ(readTree(metadata), before);
            ASSERT_EQ(nlohmann::json::parse(run(line).out).at("damaged"), metadata.native() + ".damaged");
            EXPECT_EQ(typeOf(coreFile), store);
            EXPECT_EQ(contentOf(root), content);
            EXPECT_EQ(run({"check", root}).status, 0);
            EXPECT_TRUE(fs::exists(metadata / uuid));
            EXPECT_EQ(readTree(metadata.native() + ".damaged"), before);
            ++damages;
        }
    }
    EXPECT_GE(damages, 3U);
    // The next one gets another name.
    test::writeBytes(coreFile, "<");
    const auto again =
        nlohmann::json::parse(run({"import", file, root, "--replace", "--store", "sqlite", "--json"}).out);
    EXPECT_EQ(again.at("damaged"), metadata.native() + ".damaged.2");
    EXPECT_EQ(typeOf(coreFile), "sqlite");
    EXPECT_EQ(contentOf(root), content);
}

TEST_P(TransferTest, whatCannotBeHadNowIsNotTakenForDamaged) {
    ASSERT_EQ(run({"export", root, "-o", file}).status, 0);
    fs::permissions(folder.std(), fs::perms::all);
    fs::permissions(file, fs::perms::all);
    for (const auto& entry : fs::recursive_directory_iterator(root))
        fs::permissions(entry.path(), entry.is_directory() ? fs::perms::all : fs::perms::none);
    fs::permissions(root, fs::perms::all);
    const auto before = readTree(root);
    const test::Surroundings unprivileged{test::movedInstallation(), {}, {}, test::becomeUnprivileged};
    expectFailure(run({"import", file, root, "--replace"}, unprivileged), 3, {root, "Permission denied"});
    EXPECT_EQ(readTree(root), before);
    // Nor if it is only a part.
    for (const auto& entry : fs::recursive_directory_iterator(root))
        fs::permissions(entry.path(), fs::perms::all);
    for (const auto& entry : fs::directory_iterator(coreFile.parent_path())) {
        fs::permissions(entry.path(), fs::perms::none);
        expectFailure(run({"import", file, root, "--replace"}, unprivileged), 3, {root, "Permission denied"});
        fs::permissions(entry.path(), fs::perms::all);
    }
    EXPECT_EQ(readTree(root), before);
}

TEST_P(TransferTest, onePathIsExportedAndImportedAndTheRestStays) {
    const std::string top = "F:branch";
    ASSERT_EQ(run({"set", root, top + "|F:leaf", "K=V"}).status, 0);
    const test::Outcome exported = run({"export", root, "--path", top, "-o", "-"});
    test::writeBytes(file, exported.out);
    for (const std::string store : {"fixedPath", "monolithic", "sqlite"}) {
        const fs::path other = folder / store;
        ASSERT_EQ(run({"init", other, "--store", store}).status, 0);
        ASSERT_EQ(run({"set", other, "F:mine", "--create", "K=V"}).status, 0);
        const auto before = contentOf(other);
        expectFailure(run({"import", file, other, "--path", "F:mine"}), 3, {"\"F:mine\" already", "--replace"});
        expectFailure(run({"import", file, other, "--path", "F:gone"}), 3, {"no path \"F:gone\""});
        EXPECT_EQ(contentOf(other), before);
        expectSuccess(run({"import", "-", other, "--path", top + "|F:leaf", "-q"}, test::withInput(exported.out)), "");
        expectSuccess(run({"find", other}), "F:mine\nF:branch\nF:branch|F:leaf\n");
        ASSERT_EQ(run({"set", other, top + "|F:leaf|F:new", "--create", "K=old"}).status, 0);
        expectSuccess(run({"import", file, other, "--path", top, "--replace"}), "0 added, 0 updated, 1 removed\n");
        expectSuccess(run({"get", other, top + "|F:leaf", "K"}), "V\n");
    }
}

TEST_P(TransferTest, aFileIsLookedAtAsTheProjectIs) {
    ASSERT_EQ(run({"export", root, "-o", file}).status, 0);
    const std::string bytes = test::readBytes(file);
    for (const std::vector<std::string>& options :
         std::vector<std::vector<std::string>>{{"tree", "--attributes", "--json"},
                                               {"find", "--json"},
                                               {"find", "--inside", "--attribute", "Text"},
                                               {"show", "F:z", "--json"},
                                               {"stat", "--json"}}) {
        const auto runOn = [&](const std::string& place, const test::Surroundings& surroundings) {
            std::vector<std::string> line = options;
            line.insert(line.begin() + 1, place);
            test::Outcome outcome = run(line, surroundings);
            EXPECT_EQ(outcome.status, 0) << outcome.err;
            if (options[0] != "stat")
                return outcome.out;
            auto counts = nlohmann::json::parse(outcome.out);
            counts.erase("fileBytes"), counts.erase("files");
            return counts.dump();
        };
        const std::string expected = runOn(root, {});
        EXPECT_GT(expected.size(), 3U);
        EXPECT_EQ(runOn(file, {}), expected) << options[0];
        EXPECT_EQ(runOn("-", test::withInput(bytes)), expected) << options[0];
    }
    EXPECT_EQ(run({"diff", "-", root}, test::withInput(bytes)).status, 0);
    expectFailure(run({"diff", "-", "-"}, test::withInput(bytes)), 2, {"only once"});
    expectFailure(run({"set", "-C", file, "F:z", "K=V"}), 4, {file, "no folder"});
}

TEST_P(TransferTest, aConversionKeepsEverythingAndTheFilesOfOthers) {
    const fs::path metadata = coreFile.parent_path();
    const std::map<std::string, std::string> foreign{{".gitattributes", "*.xml text"},
                                                     {"notes/deep/a.txt", "1"},
                                                     {"uuid-6ba7b810-9dad-11d1-80b4-00c04fd430c8.xml", "<uuid/>"}};
    for (const auto& [name, bytes] : foreign)
        test::writeBytes(metadata / name, bytes);
    expectFailure(run({"convert", root, "--store", GetParam()}), 2, {GetParam(), "already"});

    for (const std::string store : {"sqlite", "fixedPath", "monolithic", "fixedPath"}) {
        if (store == typeOf(coreFile))
            continue;
        const auto before = readTree(root);
        EXPECT_THAT(run({"convert", root, "--store", store, "--dry-run"}).out, HasSubstr("Would convert 7 paths"));
        EXPECT_EQ(readTree(root), before);
        expectSuccess(run({"convert", root, "--store", store, "-q"}), "");
        EXPECT_EQ(typeOf(coreFile), store);
        EXPECT_EQ(contentOf(root), content);
        for (const auto& [name, bytes] : foreign)
            EXPECT_EQ(test::readBytes(metadata / name), bytes);
        EXPECT_EQ(std::distance(fs::directory_iterator(root / "resources"), {}), 1);
    }
    const auto last = readTree(metadata);
    const std::string type = typeOf(coreFile);
    const std::string other = type == "sqlite" ? "monolithic" : "sqlite";
    expectSuccess(run({"convert", root, "--store", other, "--keep", "--folder", ".TolvaneProject", "-q"}), "");
    EXPECT_EQ(readTree(metadata.native() + '.' + type), last);
    EXPECT_EQ(contentOf(root), content);
}

TEST_F(ImportTest, namesTheFileThatItRefuses) {
    init();
    const fs::path file = folder / "exported.xml";
    ASSERT_EQ(run({"export", root, "-o", file}).status, 0);
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
    expectFailure(run({"import", root, root, "--replace"}), 3, {"Cannot read", root, "no regular file"});
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
    expectFailure(run({"convert", root, "--store", "monolithic"}), 3, {root, "nested"});
    EXPECT_EQ(readTree(root), before);

    // A file of somebody else that the new store would take for its own.
    ASSERT_EQ(run({"convert", root, "--store", "sqlite"}).status, 0);
    ASSERT_EQ(run({"remove", root, "F:0"}).status, 0);
    test::writeBytes(coreFile.parent_path() / "F=1.xml", "<Path Type=\"F\" Location=\"1\" Rank=\"a\"/>");
    const auto foreign = readTree(root);
    expectFailure(run({"convert", root, "--store", "fixedPath"}), 3, {"project-metadata: The file \"F=1.xml\""});
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
    expectFailure(run({"convert", root, "--store", "monolithic"}), 1, {"is converted", old / "metadata.db"});
    close(database);
    EXPECT_TRUE(fs::exists(old / "metadata.db"));
    EXPECT_EQ(run({"get", root, "F:0", "k"}).out, "1\n");
}

}  // namespace
