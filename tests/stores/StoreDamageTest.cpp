// What a store refuses, and what it leaves alone when something goes wrong.

#include <gtest/gtest.h>

#include <array>

#include "host/DiagnosticLogger.hpp"
#include "project/metadata/MetadataDamage.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "tests/stores/StoreHelpers.hpp"
#include "tests/support/FileSizeLimit.hpp"
#include "tests/support/MessageOf.hpp"
#include "tests/support/Settings.hpp"
#include "tests/support/UnprivilegedUser.hpp"

using namespace test;
using project::metadata::MetadataReadFailure;
using project::metadata::MetadataWriteFailure;
using project::metadata::ReadOnlyMetadataFailure;

namespace {

/// Every file in `folder` with its content.
std::map<std::string, std::string> readFiles(const std::filesystem::path& folder) {
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file())
            files[entry.path().string()] = readBytes(entry.path());
    }
    return files;
}

class StoreDamageTest : public testing::TestWithParam<std::u16string> {
protected:
    std::unique_ptr<MetadataManager> open() const { return openStore(GetParam(), folder_.path()); }

    std::filesystem::path metadata() const { return folder_ / "resources/project"; }

    /// The file that holds the node of the root path.
    std::filesystem::path rootFile() const {
        return metadata() / (GetParam() == u"sqlite" ? "metadata.db" : "Project.xml");
    }

    /// What must be the same after a change that failed on the way: a database keeps the rest of it, unseen.
    std::map<std::string, std::string> readFilesOfOneContent() const {
        return GetParam() == u"sqlite" ? std::map<std::string, std::string>() : readFiles(folder_.std());
    }

    static MetadataNodeSpecification nested(int levels) {
        MetadataNodeSpecification root;
        MetadataNode* node = &root;
        for (int level = 1; level < levels; ++level)
            node = &node->createChildNode();
        return root;
    }

    TempFolder folder_;
};

TEST_P(StoreDamageTest, RefusesWhatCouldNotBeReadBack) {
    const auto store = open();
    store->setNode(path({u"a"}), *node(u"1"));
    const auto before = readFiles(folder_.std());
    const auto refused = [&](const MetadataNode& node, const std::string& reason) {
        const std::string message = messageOf<MetadataWriteFailure>([&] { store->setNode(path({u"a"}), node); });
        EXPECT_NE(message.find(reason), std::string::npos) << message;
        EXPECT_EQ(message.find(".pending"), std::string::npos) << message;
        EXPECT_EQ(readFiles(folder_.std()), before);
        EXPECT_EQ(outline(*store), "a(1)");
    };
    refused(MetadataNodeSpecification(u"no name"), "\"no name\" is no XML name");
    refused(MetadataNodeSpecification(u""), "\"\" is no XML name");
    refused(nested(300), "levels deep");

    MetadataNodeSpecification node;
    node.put(u" key ", u"");
    refused(node, "blanks around it");

    MetadataNodeSpecification halfCharacter;
    halfCharacter.createChildNode().put(u"Key", {u'a', 0xDFFF});
    refused(halfCharacter, "the value of \"Key\" of <Info> has a surrogate without a partner");

    // A node of a host's own class may hold anything.
    struct HostsNode : MetadataNodeSpecification {
        HostsNode(std::u16string key, std::u16string value) : key_(std::move(key)), value_(std::move(value)) {}
        const std::u16string& get(std::u16string /*key*/) const override { return value_; }
        std::vector<std::u16string> getAttributeKeys() const override { return {key_}; }
        std::u16string key_, value_;
    };
    refused(HostsNode(u"1k", u""), "the attribute key \"1k\" of <Info> is no XML name");
    refused(HostsNode(u"", u""), "the attribute key \"\" of <Info> is no XML name");
    refused(HostsNode(u" k", u""), "blanks around it");
    refused(HostsNode(u"k", u"a\u0001"),
            "the value of \"k\" of <Info> has the character U+0001, which XML cannot hold");
    refused(HostsNode(u"k", u"\uFFFE"), "has the character U+FFFE, which XML cannot hold");
    refused(HostsNode(u"k", u"\U0001F600\U0001F400"), "has the character U+1F400, which no node takes");
    refused(HostsNode(u"k", {u'a', 0xDC01}), "has a surrogate without a partner");
    const auto bad = std::make_shared<HostsNode>(u"k", u"\u0001");
    EXPECT_THROW(store->setNodes({{path({u"b"}), test::node(u"1")}, {path({u"c"}), bad}}), MetadataWriteFailure);
    EXPECT_EQ(readFiles(folder_.std()), before);

    // Not allowed by the namespace rules of XML, and dropped by readers.
    MetadataNodeSpecification undeclared;
    undeclared.put(u"xmlns:a", u"");
    refused(undeclared, "read back");
    MetadataNodeSpecification huge;
    huge.put(u"Key", std::u16string(10'000'001, u'x'));
    refused(huge,
            "the attribute \"Key\" of <Info> takes 10000008 bytes in XML, where a node may take less than 10000000");
    // Each of its values could be.
    MetadataNodeSpecification longTag;
    for (const char16_t* key : {u"a", u"b", u"c"})
        longTag.put(key, std::u16string(900'000, u'"'));
    refused(longTag, "all that the attributes of <Info> hold takes 16200015 bytes");
    // One of them alone is not to blame.
    MetadataNodeSpecification longTogether;
    longTogether.put(u"a", std::u16string(9'999'000, u'x'));
    longTogether.put(u"b", std::u16string(2000, u'x'));
    refused(longTogether, "all that the attributes of <Info> hold takes 10001010 bytes");
    MetadataNodeSpecification longName;
    longName.createChildNode(std::u16string(50'001, u'n'));
    refused(longName, "the name \"nnnn");
    refused(longName, "...\" takes 50001 bytes, and may take no more than 50000");

    const std::string message =
        messageOf<MetadataWriteFailure>([&] { store->addPath(path({std::u16string(2'000'000, u'"')})); });
    EXPECT_NE(message.find("\"Location\" of <Path> takes 12000012 bytes"), std::string::npos)
        << message.substr(0, 1000);
    EXPECT_EQ(readFiles(folder_.std()), before);
}

// Files that others have written may hold what a reader takes and a writer cannot say, and stay as they are until that
// is gone.
TEST(OthersFilesTest, AreNotWrittenAnewIfTheyWouldReadBackDifferently) {
    const std::vector<std::string> attributes{"xmlns:p='u&amp;v'", "Key='" + std::string(2'000'000, '"') + "'"};
    for (const std::u16string name : {u"fixedPath", u"monolithic"}) {
        for (const std::string& attribute : attributes) {
            const TempFolder folder;
            openStore(name, folder.path())->setNodes({{path({u"a"}), node(u"1")}, {path({u"b"}), node(u"2")}});
            const bool isFixedPath = name == u"fixedPath";
            const std::filesystem::path file = folder / "resources/project" / (isFixedPath ? "t=b.xml" : "Project.xml");
            std::string text = readBytes(file);
            text.replace(text.find("Value=\"2\""), 9, attribute);
            writeBytes(file, text);

            const auto store = openStore(name, folder.path());
            const std::u16string before = describe(*store->getNode(path({u"b"})));
            const std::string message = messageOf<MetadataWriteFailure>([&] {
                store->setPaths({path({u"b"}), path({u"a"})});
            });
            EXPECT_NE(message.find(file.string()), std::string::npos) << message;
            EXPECT_NE(message.find("read back"), std::string::npos) << message;
            EXPECT_EQ(readBytes(file), text);
            EXPECT_EQ(describe(*openStore(name, folder.path())->getNode(path({u"b"}))), before);

            store->setNode(path({u"b"}), *node(u"3"));
            store->setPaths({path({u"b"}), path({u"a"})});
            EXPECT_EQ(outline(*openStore(name, folder.path())), "b(3) a(1)");
        }
    }
}

// Who has written more into the file of a store than that writes itself does not lose it by a change of something else.
TEST(OthersFilesTest, KeepWhatNoStoreWrites) {
    const std::vector<std::array<std::string, 3>> cases{
        {"<Path ", "<Path Mine=\"1\" ", "an attribute \"Mine\" of <Path>"},
        {"<Project ", "<Project Author=\"me\" ", "an attribute \"Author\" of <Project>"},
        {"<Node>", "<Node x=\"\">", "an attribute \"x\" of <Node>"},
        {" Type=", " EscapedType=\"t\" Type=", "an attribute \"Type\" of <Path>"},
        {"</Node>", "</Node><Other/>", "<Other>"},
        {"<Node>", "<!-- why --><Node>", "a comment in line "},
        {"<Node>", "<?why?><Node>", "a processing instruction in line "},
        {"</Node>", "why</Node>", "text in line "},
        {"</Node>", "<![CDATA[ ]]></Node>", "a CDATA section"},
        {"<Project ", "<!DOCTYPE Project><Project ", "a document type"},
        {"Project", "Other", "<Other> where <Project> is expected"}};
    // The last one; of the project's name, that at the beginning too.
    const auto swap = [](std::string& content, const std::string& from, const std::string& to) {
        content.replace(content.rfind(from), from.size(), to);
        if (const auto place = content.find(from); (to == "Other" || from == "Other") && place != content.npos)
            content.replace(place, from.size(), to);
    };
    std::map<std::u16string, int> kept;
    for (const std::u16string name : {u"fixedPath", u"monolithic"}) {
        for (const auto& [text, replacement, what] : cases) {
            SCOPED_TRACE(host::toUtf8(name) + ", " + replacement);
            const TempFolder folder;
            openStore(name, folder.path())->setNodes({{path({u"a"}), node(u"1")}, {path({u"b"}), node(u"2")}});
            const bool isBesideRoot = name == u"fixedPath" && text.find("Project") == text.npos;
            const std::filesystem::path file =
                folder / "resources/project" / (isBesideRoot ? "t=b.xml" : "Project.xml");
            std::string content = readBytes(file);
            swap(content, text, replacement);
            writeBytes(file, content);

            const auto store = openStore(name, folder.path());
            EXPECT_EQ(outline(*store), "a(1) b(2)");
            const auto damage = dynamic_cast<project::metadata::DamageReporter&>(*store).findDamage();
            ASSERT_EQ(damage.size(), 1U);
            EXPECT_EQ(damage.front().file.accessName(), file);
            EXPECT_NE(host::toUtf8(damage.front().problem).find(what), std::string::npos)
                << host::toUtf8(damage.front().problem);
            const MetadataPath changed = isBesideRoot ? path({u"b"}) : MetadataPath();
            const std::string message = messageOf<MetadataWriteFailure>([&] { store->setNode(changed, *node(u"3")); });
            EXPECT_NE(message.find(what), std::string::npos) << message;
            EXPECT_EQ(readBytes(file), content);

            swap(content, replacement, text);
            writeBytes(file, content);
            openStore(name, folder.path())->setNode(changed, *node(u"3"));
            kept[name] += openStore(name, folder.path())->getNode(changed)->get(u"Value") == u"3";
        }
    }
    EXPECT_EQ(kept, (std::map<std::u16string, int>{{u"fixedPath", 11}, {u"monolithic", 11}}));
}

TEST_P(StoreDamageTest, KeepsTheDeepestTreeThatCanBeReadBack) {
    const auto store = open();
    int levels = 200;
    const auto fits = [&](int count) {
        try {
            store->setNode(path({u"a"}), nested(count));
            return true;
        } catch (const MetadataWriteFailure&) {
            return false;
        }
    };
    while (fits(levels + 1))
        ++levels;
    EXPECT_GT(levels, 250);
    EXPECT_EQ(describe(*open()->getNode(path({u"a"}))), describe(nested(levels)));
    // Names with colons and long texts are fine as long as they read back.
    MetadataNodeSpecification node(u"ns:name");
    node.put(u"ns:key", std::u16string(2'000'000, u'\u00E4'));
    const MetadataPath longPath = path({std::u16string(2'000'000, u'b')});
    store->setNode(longPath, node);
    EXPECT_EQ(describe(*open()->getNode(longPath)), describe(node));
}

TEST_P(StoreDamageTest, DamagedCoreFileIsNamedAndLeftAlone) {
    open()->setNode(MetadataPath(), *node(u"1"));
    const auto core = metadata() / "Project.xml";
    // Beside a database, the core file is not needed.
    std::filesystem::remove(metadata() / "metadata.db");
    for (const char* content :
         {"", "no xml", "<Project MetadataType=", "<Project/>", "<Project MetadataType='other'/>"}) {
        writeBytes(core, content);
        const std::string message = messageOf<MetadataReadFailure>([&] { open(); });
        EXPECT_NE(message.find(core.string()), std::string::npos) << message;
        EXPECT_EQ(readBytes(core), content);
    }
}

TEST_P(StoreDamageTest, AProjectThatHasBeenConvertedIsNotWrittenToByTheOldStore) {
    const auto store = open();
    store->setNode(path({u"a"}), *node(u"1"));
    const auto core = metadata() / "Project.xml";
    writeBytes(core, "<Project MetadataType='other'/>");
    const auto before = readFiles(folder_.std());
    const std::string message = messageOf<MetadataWriteFailure>([&] { store->setNode(path({u"a"}), *node(u"2")); });
    EXPECT_NE(message.find(core.string()), std::string::npos) << message;
    EXPECT_NE(message.find("\"other\""), std::string::npos) << message;
    EXPECT_EQ(readFiles(folder_.std()), before);
}

class FileStoreDamageTest : public StoreDamageTest {};

TEST_P(FileStoreDamageTest, FailedWriteLeavesTheOldContent) {
    const auto store = open();
    std::map<MetadataPath, std::shared_ptr<MetadataNode>> nodes;
    for (char16_t name = u'a'; name <= u'z'; ++name)
        nodes[path({std::u16string(1, name)})] = node(u"1");
    store->setNodes(nodes);
    const Content content = read(*store);
    const auto before = readFilesOfOneContent();
    nodes[path({u"y"})] = node(std::u16string(20000, u'x'));

    const std::string message = [&] {
        const FileSizeLimit limit(16384);
        return messageOf<MetadataWriteFailure>([&] { store->setNodes(nodes); });
    }();
    EXPECT_NE(message.find("File too large"), std::string::npos) << message;
    EXPECT_NE(message.find(metadata().string()), std::string::npos) << message;
    EXPECT_EQ(message.find(".pending"), std::string::npos) << message;
    EXPECT_EQ(readFilesOfOneContent(), before);
    EXPECT_EQ(read(*store), content);
    EXPECT_EQ(read(*open()), content);
    store->setNodes(nodes);
    EXPECT_EQ(open()->getNode(path({u"y"}))->get(u"Value").size(), 20000U);
}

TEST_P(FileStoreDamageTest, ReadOnlyFilesFollowTheUsersSetting) {
    const SettingsOverride noSettings(std::shared_ptr<const host::SettingsGroup>{});
    // The plug-ins may lie where only the superuser gets.
    const auto store = open();
    const UnprivilegedUser user;
    const MetadataPath root;
    store->setNode(root, *node(u"1"));
    const auto set = [&](const char16_t* value) {
        return SettingsOverride({{{"korvex.project.metadata", "MakeReadOnlyMetadataWritable"}, value}});
    };
    const auto protect = [&](const std::filesystem::path& path) {
        std::filesystem::permissions(path, std::filesystem::perms(0222), std::filesystem::perm_options::remove);
    };
    for (const auto& target : {rootFile(), metadata()}) {
        const auto before = readFiles(folder_.std());
        protect(target);
        {
            const auto settings = set(u"no");
            const std::string message = messageOf<ReadOnlyMetadataFailure>([&] { store->setNode(root, *node(u"2")); });
            EXPECT_NE(message.find(target.string()), std::string::npos) << message;
            EXPECT_EQ(readFiles(folder_.std()), before);
        }
        const auto settings = set(u"yes");
        store->setNode(root, *node(u"2"));
        EXPECT_EQ(open()->getNode(root)->get(u"Value"), u"2");
        store->setNode(root, *node(u"1"));
    }
    // The group's and others' permissions stay as they were.
    EXPECT_EQ(std::filesystem::status(rootFile()).permissions(), std::filesystem::perms(0644));

    // A metadata folder may be a link to a folder elsewhere.
    rename(metadata(), folder_ / "elsewhere");
    create_directory_symlink(folder_ / "elsewhere", metadata());
    protect(folder_ / "elsewhere");
    const auto settings = set(u"yes");
    open()->setNode(root, *node(u"3"));
    EXPECT_EQ(open()->getNode(root)->get(u"Value"), u"3");
}

// XML can hold characters that an attribute of a node cannot.
TEST(RefusedAttributeTest, IsDamageOfItsNodeAndToldWithItsLine) {
    const std::string rat = "\xF0\x9F\x90\x80";
    for (const std::u16string name : {u"fixedPath", u"monolithic"}) {
        const bool isFixedPath = name == u"fixedPath";
        for (const bool isKey : {false, true}) {
            const TempFolder folder;
            MetadataNodeSpecification damaged(u"Info");
            damaged.createChildNode(u"Child").put(u"marker1", u"marker2");
            {
                const auto store = openStore(name, folder.path());
                store->setNode(path({u"a", u"b"}), damaged);
                store->setNode(path({u"a", u"b", u"c"}), *node(u"1"));
                store->setNode(path({u"d"}), *node(u"2"));
            }
            const std::filesystem::path file =
                folder / "resources/project" / (isFixedPath ? "t=a/t=b.xml" : "Project.xml");
            std::string text = readBytes(file);
            const std::size_t place = text.find(isKey ? "marker1" : "marker2");
            ASSERT_NE(place, text.npos);
            text.replace(place, 7, isKey ? "k\xF0\x90\x80\x80" : rat);
            writeBytes(file, text);
            const auto line = std::to_string(1 + std::count(text.begin(), text.begin() + std::ptrdiff_t(place), '\n'));

            const auto store = openStore(name, folder.path());
            EXPECT_EQ(store->getChildren(MetadataPath()), (std::vector{path({u"a"}), path({u"d"})}));
            EXPECT_EQ(describe(*store->getNode(path({u"a", u"b", u"c"}))), describe(*node(u"1")));
            EXPECT_EQ(describe(*store->getNode(path({u"d"}))), describe(*node(u"2")));
            EXPECT_THROW(store->getNode(path({u"a", u"b"})), MetadataReadFailure);
            const auto damage = dynamic_cast<project::metadata::DamageReporter&>(*store).findDamage();
            ASSERT_EQ(damage.size(), 1U);
            EXPECT_EQ(damage.front().file.accessName(), file);
            EXPECT_EQ(damage.front().path, path({u"a", u"b"}));
            EXPECT_NE(damage.front().problem.find(host::fromUtf8(" line " + line + ' ')), std::u16string::npos)
                << host::toUtf8(damage.front().problem) << ", not in line " << line;
            EXPECT_THROW(store->setNode(path({u"a", u"b"}), *node(u"3")), MetadataWriteFailure);
            EXPECT_EQ(readBytes(file), text);
        }
    }
}

TEST(DamageSinkTest, StoresTellDamageAsTheyComeUponIt) {
    std::vector<std::string> told;
    std::vector<std::string> logged;
    host::DiagnosticLogger::setSink([&](const host::LogRecord& record) { logged.emplace_back(record.text); });
    for (const char16_t* name : {u"fixedPath", u"monolithic"}) {
        const TempFolder folder;
        const std::filesystem::path root = folder / "is damaged: not";
        openStore(name, toPath(root))->addPath(path({u"a"}));
        const bool isFixedPath = std::u16string(name) == u"fixedPath";
        const std::filesystem::path file = root / "resources/project" / (isFixedPath ? "t=a.xml" : "Project.xml");
        writeBytes(file, isFixedPath ? "<Path Type='t' Location='a'/>"
                                     : "<Project MetadataType='monolithic'><Path/><Path/></Project>");
        const auto look = [&] { openStore(name, toPath(root))->getChildren(MetadataPath()); };
        const std::string problem =
            isFixedPath ? "its Rank is missing or invalid" : "a path element stands twice under one parent in it";

        project::metadata::setDamageSink([&](const project::metadata::MetadataDamage& damage) {
            told.push_back(damage.file.accessName() + '|' + host::toUtf8(damage.problem));
        });
        look();
        EXPECT_EQ(std::exchange(told, {}), std::vector{file.string() + '|' + problem});
        EXPECT_EQ(logged, std::vector<std::string>());

        project::metadata::setDamageSink(nullptr);
        look();
        EXPECT_EQ(told, std::vector<std::string>());
        EXPECT_EQ(std::exchange(logged, {}), std::vector{file.string() + " is damaged: " + problem});
    }
    host::DiagnosticLogger::setSink(nullptr);
}

INSTANTIATE_TEST_SUITE_P(Stores, StoreDamageTest, testing::ValuesIn(builtStores()), nameOfStore);
INSTANTIATE_TEST_SUITE_P(Stores, FileStoreDamageTest, testing::ValuesIn(fileStores()), nameOfStore);

}  // namespace
