// Which files a store says are its own, and its files by themselves.

#include <gtest/gtest.h>

#include <map>
#include <set>

#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataFiles.hpp"
#include "tests/stores/StoreHelpers.hpp"
#include "tests/support/MessageOf.hpp"

using namespace test;
using project::metadata::FileContent;
using project::metadata::MetadataFileFormat;
using project::metadata::MetadataReadFailure;
using project::metadata::MetadataWriteFailure;
using project::metadata::PathTree;

namespace fs = std::filesystem;

namespace {

class StoreFilesTest : public testing::TestWithParam<std::u16string> {
protected:
    fs::path metadata() const { return folder_ / "resources/project"; }

    /// By their names relative to the metadata folder, those without content in brackets, in the order of the answer.
    std::vector<std::string> listed(const MetadataManager& store) const {
        std::vector<std::string> names;
        host::Path last;
        for (const auto& file : dynamic_cast<const project::metadata::StoreFileLister&>(store).listFiles()) {
            EXPECT_LT(last, file.file);
            last = file.file;
            const std::string name = toStd(file.file).lexically_relative(metadata());
            names.push_back(file.hasContent ? name : '(' + name + ')');
        }
        return names;
    }

    std::set<std::string> onDisk() const {
        std::set<std::string> names;
        for (const auto& entry : fs::recursive_directory_iterator(metadata())) {
            if (!entry.is_directory())
                names.insert(entry.path().lexically_relative(metadata()));
        }
        return names;
    }

    static std::set<std::string> withoutBrackets(const std::vector<std::string>& names) {
        std::set<std::string> result;
        for (const std::string& name : names)
            result.insert(name.front() == '(' ? name.substr(1, name.size() - 2) : name);
        EXPECT_EQ(result.size(), names.size()) << "a file is listed twice";
        return result;
    }

    TempFolder folder_;
    std::unique_ptr<MetadataManager> store_ = openStore(GetParam(), folder_.path());
};

TEST_P(StoreFilesTest, AStoreListsAllThatItHasMadeAndNothingElse) {
    EXPECT_EQ(listed(*store_), std::vector<std::string>());
    for (const auto& steps : {path({}), path({u"a"}), path({u"a", u"b"}), path({u"c", u"d", u"e"})})
        store_->setNode(steps, *node(u"1"));
    // Also while the store is open and a database has files beside it.
    EXPECT_EQ(withoutBrackets(listed(*store_)), onDisk());

    store_.reset();
    store_ = openStore(GetParam(), folder_.path());
    const std::vector<std::string> before = listed(*store_);
    EXPECT_EQ(withoutBrackets(before), onDisk());
    const TempFolder elsewhere;
    writeBytes(elsewhere / "t=x.xml", "not in the folder");
    fs::create_directory_symlink(elsewhere.std(), metadata() / "t=link");
    fs::create_directories(metadata() / "t=empty.xml");
    for (const char* foreign : {"notes.txt", "uuid-1.xml", "a.xml", "metadata.db.bak", "mine/metadata.db", "mine/.lock",
                                "mine/Project.xml", "t=a/readme"})
        writeBytes(metadata() / foreign, "somebody's");
    EXPECT_EQ(listed(*store_), before);
}

TEST_P(StoreFilesTest, TheFileOfANodeIsTheOneThatChangesWithIt) {
    const MetadataPath places[] = {path({}), path({u"a"}), path({u"a", std::u16string(300, u'b')}), path({u"c"})};
    for (const MetadataPath& place : places)
        store_->setNode(place, *node(u"1"));
    store_.reset();
    for (const MetadataPath& place : places) {
        std::map<fs::path, std::string> before;
        for (const std::string& name : onDisk())
            before[metadata() / name] = readBytes(metadata() / name);
        store_ = openStore(GetParam(), folder_.path());
        store_->setNode(place, *node(u"2"));
        const auto& lister = dynamic_cast<const project::metadata::StoreFileLister&>(*store_);
        const fs::path changed = toStd(lister.getNodeFile(place));
        store_.reset();
        // What is on a server is in no file.
        EXPECT_EQ(before.count(changed), GetParam() == u"postgresql" ? 0U : 1U) << changed;
        for (const auto& [file, bytes] : before)
            EXPECT_EQ(readBytes(file) != bytes, file == changed) << file;
    }
}

TEST_P(StoreFilesTest, WhatServesOnlyWhileProgramsAreAtWorkHasNoContent) {
    store_->setNode(path({u"a"}), *node(u"1"));
    store_ = openStore(GetParam(), folder_.path());
    const std::vector<std::string> before = listed(*store_);
    writeBytes(metadata() / ".lock", "");
    writeBytes(metadata() / ".pending/new/0", "half a file");
    std::vector<std::string> expected = before;
    expected.insert(expected.begin(), {"(.lock)", "(.pending/new/0)"});
    EXPECT_EQ(listed(*store_), expected);
}

INSTANTIATE_TEST_SUITE_P(Stores, StoreFilesTest, testing::ValuesIn(builtStores()), nameOfStore);

TEST(FixedPathFilesListTest, DamagedAndStrayFilesAreTheStoresToo) {
    const TempFolder folder;
    const fs::path metadata = folder / "resources/project";
    openStore(u"fixedPath", folder.path())->addPath(path({u"a"}));
    writeBytes(metadata / "t=a.xml", "no xml");
    writeBytes(metadata / "t=gone/t=b.xml", "<Path/>");
    std::set<std::string> names;
    const auto store = openStore(u"fixedPath", folder.path());
    for (const auto& file : dynamic_cast<const project::metadata::StoreFileLister&>(*store).listFiles())
        names.insert(toStd(file.file).filename());
    EXPECT_EQ(names, (std::set<std::string>{"Project.xml", "t=a.xml", "t=b.xml"}));
}

/// "step@place(value)[children]", all but the step left out where there is none.
std::string outlineOf(const PathTree& tree) {
    std::string text = host::toUtf8(tree.step.getLocation());
    if (!tree.place.empty())
        text += '@' + host::toUtf8(tree.place);
    if (tree.node)
        text += '(' + host::toUtf8(tree.node->get(u"Value")) + ')';
    std::string below;
    for (const PathTree& child : tree.children)
        below += (below.empty() ? "" : " ") + outlineOf(child);
    return below.empty() ? text : text + '[' + below + ']';
}

class FileFormatTest : public testing::Test {
protected:
    static const MetadataFileFormat& format(const std::u16string& store) {
        return dynamic_cast<const MetadataFileFormat&>(*project::metadata::getNamedFactory(store));
    }

    std::optional<std::string> read(const std::u16string& store, const std::string& bytes) const {
        writeBytes(file_, bytes);
        const auto content = format(store).readFile(toPath(file_));
        return content ? std::optional((content->isRoot ? "root " : "") + outlineOf(content->tree)) : std::nullopt;
    }

    std::string refusal(const std::u16string& store, const std::string& bytes) const {
        const std::string message = messageOf<MetadataReadFailure>([&] { read(store, bytes); });
        EXPECT_NE(message.find(file_.string()), std::string::npos) << message;
        return message;
    }

    TempFolder folder_;
    fs::path file_ = folder_ / "any name";
};

const std::string fixedCore = "<Project MetadataType=\"fixedPath\"";
const std::string single = "<Project MetadataType=\"monolithic\"";

TEST_F(FileFormatTest, AStoreReadsItsOwnFilesAndNoOthers) {
    const std::string file = "<Path Location=\"a\" Rank=\"a1\" Type=\"t\"><Node><Info Value=\"1\"/></Node></Path>";
    EXPECT_EQ(read(u"fixedPath", file), "a@a1(1)");
    EXPECT_EQ(read(u"fixedPath", "<Path EscapedLocation=\"\\u0001\" Rank=\"a1\" Type=\"\"/>"), "\x01@a1");
    EXPECT_EQ(read(u"fixedPath", fixedCore + "/>"), "root ");
    EXPECT_EQ(read(u"fixedPath", fixedCore + "><Node><Info Value=\"2\"/></Node></Project>"), "root (2)");
    EXPECT_EQ(read(u"monolithic", single + "/>"), "root ");
    EXPECT_EQ(read(u"monolithic", single + "><Node><Info Value=\"2\"/></Node><Path Type=\"t\" Location=\"b\">"
                                           "<Path Type=\"t\" Location=\"c\"/></Path>"
                                           "<Path Type=\"t\" Location=\"a\"/></Project>"),
              "root (2)[b[c] a]");
    for (const std::string& other : {std::string("<uuid/>"), std::string("<Project/>"), std::string("no xml"),
                                     std::string(), std::string("<Project MetadataType=\"sqlite\"/>")}) {
        EXPECT_EQ(read(u"fixedPath", other), std::nullopt) << other;
        EXPECT_EQ(read(u"monolithic", other), std::nullopt) << other;
    }
    EXPECT_EQ(read(u"monolithic", file), std::nullopt);
    EXPECT_EQ(read(u"monolithic", fixedCore + "/>"), std::nullopt);
    EXPECT_EQ(read(u"fixedPath", single + "/>"), std::nullopt);
    const auto sqlite = project::metadata::getNamedFactory(u"sqlite");
    EXPECT_EQ(dynamic_cast<const MetadataFileFormat*>(sqlite.get()), nullptr);
}

TEST_F(FileFormatTest, WhatWouldGetLostIsRefused) {
    const std::string begin = "<Path Location=\"a\" Rank=\"a1\" Type=\"t\"";
    const std::pair<std::string, std::string> pathFiles[] = {
        {begin + ">\n\n  free text\n</Path>", "text in line"},
        {begin + "><![CDATA[ ]]></Path>", "a CDATA section in line 1"},
        {"<?mine?>" + begin + "/>", "a processing instruction in line 1"},
        {begin + "/>\n<!-- mine -->", "a comment in line 2"},
        {"<!DOCTYPE Path>" + begin + "/>", "a document type in line 1"},
        {begin + " Colour=\"\"/>", "an attribute \"Colour\" of <Path>"},
        {begin + " EscapedType=\"u\"/>", "an attribute \"Type\" of <Path>"},
        {begin + "><Node Mine=\"1\"><Info/></Node></Path>", "an attribute \"Mine\" of <Node>"},
        {begin + "><Note/></Path>", "<Note> in <Path>"},
        {begin + "><Node><Info/></Node><Note/></Path>", "<Note> in <Path>"},
    };
    for (const auto& [bytes, reason] : pathFiles) {
        const std::string message = refusal(u"fixedPath", bytes);
        EXPECT_NE(message.find(reason), std::string::npos) << bytes << ": " << message;
        EXPECT_NE(message.find("get lost"), std::string::npos) << message;
    }
    EXPECT_NE(refusal(u"fixedPath", fixedCore + " Version=\"2\"/>").find("\"Version\" of <Project>"),
              std::string::npos);
    EXPECT_NE(
        refusal(u"monolithic", single + "><Path Location=\"a\" Type=\"t\" Rank=\"a1\"/></Project>").find("\"Rank\""),
        std::string::npos);
    EXPECT_NE(refusal(u"monolithic", single + ">text</Project>").find("text in line 1"), std::string::npos);
}

TEST_F(FileFormatTest, DamageIsRefused) {
    EXPECT_NE(refusal(u"fixedPath", "<Path Location=\"a\" Rank=\"?\" Type=\"t\"/>").find("Rank"), std::string::npos);
    EXPECT_NE(refusal(u"fixedPath", fixedCore + "><Node/></Project>").find("<Node>"), std::string::npos);
    refusal(u"fixedPath", fixedCore + ">");
    EXPECT_NE(refusal(u"monolithic", single + "><Path Type=\"t\"/><Path Type=\"t\"/></Project>").find("twice"),
              std::string::npos);
    EXPECT_NE(refusal(u"monolithic", single + "><Note/></Project>").find("<Note>"), std::string::npos);
    for (const char16_t* store : {u"fixedPath", u"monolithic"}) {
        EXPECT_NE(messageOf<MetadataReadFailure>([&] { format(store).readFile(folder_.path()); }).find("regular file"),
                  std::string::npos);
        EXPECT_NE(messageOf<MetadataReadFailure>([&] {
                      format(store).readFile(toPath(folder_ / "none"));
                  }).find("No such file"),
                  std::string::npos);
    }
}

TEST_F(FileFormatTest, WhatIsReadIsWrittenAsTheStoreWroteIt) {
    for (const char16_t* name : {u"fixedPath", u"monolithic"}) {
        const TempFolder project;
        const auto store = openStore(name, project.path());
        store->setPaths({path({u"z"}), path({u"a\u0001", u"b"})});
        for (const MetadataPath& place : {MetadataPath(), path({u"z"})}) {
            store->setNode(place, *node(u"1\t2"));
            const auto& lister = dynamic_cast<const project::metadata::StoreFileLister&>(*store);
            for (const auto& file : lister.listFiles()) {
                const auto content = format(name).readFile(file.file);
                ASSERT_TRUE(content) << file.file.accessName();
                format(name).writeFile(*content, toPath(file_));
                EXPECT_EQ(readBytes(file_), readBytes(toStd(file.file)));
            }
        }
    }
}

TEST_F(FileFormatTest, WhatAFileCannotHoldIsNotWritten) {
    writeBytes(file_, "before");
    const auto refused = [&](const std::u16string& store, const FileContent& content, const std::string& reason) {
        const std::string message =
            messageOf<MetadataWriteFailure>([&] { format(store).writeFile(content, toPath(file_)); });
        EXPECT_NE(message.find(reason), std::string::npos) << message;
        EXPECT_EQ(readBytes(file_), "before");
    };
    const PathTree leaf{{u"t", u"a"}, nullptr, u"a1", {}};
    const PathTree invalid{{u"t", u"a"}, node(u"1", u"no name"), u"a1", {}};
    refused(u"fixedPath", {true, {{u"", u""}, nullptr, {}, {leaf}}}, "holds one path");
    const auto tell = [&](auto& sink) { tellPaths({{u"", u""}, nullptr, {}, {leaf}}, sink); };
    const std::string told =
        messageOf<MetadataWriteFailure>([&] { format(u"fixedPath").writePaths(tell, toPath(file_)); });
    EXPECT_NE(told.find("holds one path"), std::string::npos) << told;
    refused(u"fixedPath", {false, {{u"t", u"a"}, nullptr, u"first", {}}}, "no rank: \"first\"");
    refused(u"monolithic", {false, leaf}, "all paths");
    refused(u"monolithic", {true, {{u"", u""}, nullptr, {}, {leaf, leaf}}}, "twice");
    refused(u"fixedPath", {false, invalid}, "\"no name\" is no XML name");
    refused(u"monolithic", {true, {{u"", u""}, nullptr, {}, {invalid}}}, "\"no name\" is no XML name");
    // More than a reader takes, which only reading it shows.
    const PathTree large{{u"t", u"a"}, node(std::u16string(10'000'001, u'x')), u"a1", {}};
    refused(u"fixedPath", {false, large}, "could not be read back");
    refused(u"monolithic", {true, {{u"", u""}, nullptr, {}, {large}}}, "could not be read back");
    // Each of these could be, and as many as are tried together, but a reader keeps the names of all.
    PathTree longNames{{u"", u""}, nullptr, {}, {}};
    for (std::size_t i = 0; i < 4000; ++i) {
        const auto tag = i % 10 == 0 ? std::u16string(40'000 + i, u'n') : u"ns:name";
        longNames.children.push_back({{u"t", std::u16string(i, u'x')}, node(u"1", tag), {}, {}});
    }
    try {
        format(u"monolithic").writeFile({true, longNames}, toPath(file_));
        EXPECT_TRUE(format(u"monolithic").readFile(toPath(file_)));
    } catch (const std::bad_alloc&) {
        EXPECT_EQ(readBytes(file_).substr(0, 10), "before");
    }
    writeBytes(file_, "before");
    // One that is dropped by readers, among many that are tried together.
    const auto namespaced = node(u"1");
    namespaced->put(u"xmlns:a", u"");
    for (const std::size_t bad : {0U, 1700U, 3400U}) {
        PathTree undeclared{{u"", u""}, nullptr, {}, {}};
        for (std::size_t i = 0; i <= 3400; ++i) {
            undeclared.children.push_back({{u"t", std::u16string(i, u'x')}, node(u"1", u"ns:name"), {}, {}});
            if (i == bad)
                undeclared.children.back().node = namespaced;
        }
        refused(u"monolithic", {true, undeclared}, "<Info> would read back differently");
    }
}

}  // namespace
