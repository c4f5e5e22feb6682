// What every store does, on disk, found and opened the way the library does it.

#include <gtest/gtest.h>

#include "project/metadata/FileJobManager.hpp"
#include "project/metadata/MetadataCopy.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"
#include "project/metadata/SingleFileExport.hpp"
#include "tests/stores/StoreHelpers.hpp"
#include "tests/support/Settings.hpp"

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/ServiceRegistration.h>
#include "host/ServiceFramework.hpp"

using namespace test;
using project::metadata::MetadataReadFailure;
using project::metadata::MetadataWriteFailure;

namespace {

class StoreTest : public testing::TestWithParam<const char16_t*> {
protected:
    std::unique_ptr<MetadataManager> open() const { return openStore(GetParam(), folder_.path()); }

    /// What a store that is opened anew finds.
    std::string outlineOnDisk() const { return outline(*open()); }

    TempFolder folder_;
    std::unique_ptr<MetadataManager> store_ = open();
};

TEST_P(StoreTest, OpeningAndReadingWritesNothing) {
    EXPECT_EQ(read(*store_), Content({{MetadataPath(), u""}}));
    store_->removePath(path({u"a"}));
    store_->removeNode(path({u"a"}));
    EXPECT_TRUE(std::filesystem::is_empty(folder_.std()));
    EXPECT_EQ(project::metadata::getMetadataManagerFor(folder_.path()), nullptr);
}

TEST_P(StoreTest, FirstChangeMakesTheProject) {
    store_->setPaths({MetadataPath()});
    EXPECT_EQ(project::metadata::ProjectMetadataLocation(folder_.path()).getMetadataType(), GetParam());
    const auto found = project::metadata::getMetadataManagerFor(folder_.path());
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(outline(*found), "");
}

TEST_P(StoreTest, EditingOperations) {
    store_->setNode(path({u"a", u"b"}), *node(u"1"));
    store_->addPath(path({u"a", u"c"}));
    store_->addPath(path({u"z"}));
    store_->addPath(path({u"m"}));
    EXPECT_EQ(outlineOnDisk(), "a a/b(1) a/c z m");
    store_->setNode(path({u"a", u"b"}), *node(u"2"));
    store_->setNode(path({u"a"}), *node(u"3"));
    store_->addPath(path({u"a", u"b"}));
    EXPECT_EQ(outlineOnDisk(), "a(3) a/b(2) a/c z m");
    store_->removeNode(path({u"a", u"b"}));
    EXPECT_TRUE(store_->hasPath(path({u"a", u"b"})));
    store_->removePath(path({u"z"}));
    store_->removePath(path({u"nothing", u"here"}));
    EXPECT_EQ(outlineOnDisk(), "a(3) a/b a/c m");
    store_->removePaths({path({u"a"}), path({u"m"}), path({u"a", u"b"})});
    EXPECT_EQ(outlineOnDisk(), "");
    EXPECT_FALSE(store_->hasPath(path({u"a", u"b"})));
}

TEST_P(StoreTest, SetPathsIsTheWholeContentInItsOrder) {
    for (const char16_t* name : {u"a", u"b", u"c", u"d", u"e"})
        store_->setNode(path({name, u"x"}), *node(name));
    store_->setPaths({MetadataPath(), path({u"e"}), path({u"new"}), path({u"b"}), path({u"b", u"x"}),
                      path({u"e", u"y"}), path({u"a", u"x"}), path({u"b"})});
    EXPECT_EQ(outlineOnDisk(), "e e/y new b b/x(b) a a/x(a)");
    store_->setPaths({});
    EXPECT_EQ(outlineOnDisk(), "");
}

TEST_P(StoreTest, RootNodeIsKeptApart) {
    store_->setNode(MetadataPath(), *node(u"root", u"Path"));
    store_->setNode(path({u"a"}), *node(u"1", u"Node"));
    EXPECT_EQ(describe(*open()->getNode(MetadataPath())), u"<Path Value='root'>");
    EXPECT_EQ(project::metadata::ProjectMetadataLocation(folder_.path()).getMetadataType(), GetParam());
    store_->setPaths({MetadataPath(), path({u"a"})});
    EXPECT_TRUE(store_->hasNode(MetadataPath()));
    store_->setPaths({path({u"a"})});
    EXPECT_FALSE(open()->hasNode(MetadataPath()));
    EXPECT_EQ(describe(*open()->getNode(path({u"a"}))), u"<Node Value='1'>");
}

/// Element texts that file systems, XML or the separators of a path's text could take amiss.
std::vector<MetadataPath> hostilePaths() {
    const std::u16string loneSurrogates = {0xDCFF, u'x', 0xD800};
    const std::u16string astral = {0xD83D, 0xDE00, 0xD83D, 0xDC00};
    const std::vector<std::u16string> texts = {u"",
                                               u".",
                                               u"..",
                                               u"../..",
                                               u"/",
                                               u"a/b",
                                               u"a",
                                               u"A",
                                               u"a.xml",
                                               u"%2E",
                                               u"\\u0041",
                                               u"a:b",
                                               u"a|b",
                                               u"=",
                                               u"a=b",
                                               u"Project",
                                               u"\x1\x1F\x7F\u0085",
                                               u"\n\t\r ",
                                               u" ",
                                               std::u16string(1, 0),
                                               loneSurrogates,
                                               astral,
                                               u"\u202Efdp.exe",
                                               u"\uFFFE\uFFFF",
                                               u"<&\"'>",
                                               u"ä\u0301",
                                               std::u16string(300, u'x'),
                                               std::u16string(301, u'x'),
                                               std::u16string(300, u'\u00E4'),
                                               std::u16string(10000, u'/')};
    std::vector<MetadataPath> paths;
    for (const std::u16string& text : texts) {
        paths.push_back(MetadataPath({{text, u"x"}}));
        paths.push_back(MetadataPath({{u"x", text}}));
    }
    // The same text, with the separators elsewhere; and the folder of one beside the file of the other.
    paths.push_back(MetadataPath({{u"x", u"a:b"}, {u"", u"c"}}));
    paths.push_back(MetadataPath({{u"x:a", u"b"}, {u"", u"c"}}));
    paths.push_back(MetadataPath({{u"x", u"a.xml"}, {u"x", u"a.xml"}}));
    paths.push_back(MetadataPath({{u"x", u"a"}, {u"x", u"a"}}));
    return paths;
}

TEST_P(StoreTest, KeepsEveryPathApart) {
    Content expected;
    for (const MetadataPath& path : hostilePaths()) {
        const auto value = node(std::u16string(1, static_cast<char16_t>(u'A' + expected.size())));
        store_->setNode(path, *value);
        expected.emplace_back(path, describe(*value));
    }
    const auto reopened = open();
    for (const auto& [path, text] : expected) {
        const auto found = reopened->getNode(path);
        ASSERT_NE(found, nullptr) << host::toUtf8(path.string());
        EXPECT_EQ(describe(*found), text);
    }
    EXPECT_EQ(read(*reopened).size(), expected.size() + 2);  // the root, and x:a as a parent
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder_.std()), {}), 1);
}

TEST_P(StoreTest, CopiesAreEqualInContentAndOrder) {
    std::map<MetadataPath, std::shared_ptr<MetadataNode>> nodes;
    std::vector<MetadataPath> paths;
    for (const MetadataPath& path : hostilePaths()) {
        nodes[path] = node(path.string().substr(0, 1) == u"x" ? u"\r\n\t \"<&>" : u"\U0001F600");
        nodes[path]->createChildNode().createChildNode(u"deep");
        paths.insert(paths.begin(), path);
    }
    store_->setNodes(nodes);
    store_->setPaths(paths);
    const TempFolder otherFolder;
    for (const char16_t* other : {u"monolithic", u"fixedPath", u"monolithic"}) {
        const TempFolder copyFolder;
        const auto copy = openStore(other, copyFolder.path());
        copy->setNode(path({u"what was there before"}), *node(u"goes"));
        project::metadata::copyMetadata(*store_, *copy);
        EXPECT_EQ(read(*openStore(other, copyFolder.path())), read(*open()));
    }
}

TEST_P(StoreTest, ExportReadsBackAsTheSameStore) {
    store_->setNode(path({u"b", u"a"}), *node(u"1"));
    store_->setNode(path({u"a"}), *node(u"2"));
    const TempFolder target;
    const auto file = target / "resources/project/Project.xml";
    std::filesystem::create_directories(file.parent_path());
    // The user's choice of folder for new projects has no say in it.
    const SettingsOverride settings({{{"korvex.project.creation", "DefaultMetadataRoot"}, u".TolvaneProject"}});
    project::metadata::writeMetadataToSingleFile(folder_.path(), toPath(file));
    EXPECT_EQ(read(*openStore(u"monolithic", target.path())), read(*store_));
}

TEST_P(StoreTest, TwoStoresOnOneProjectSeeEachOther) {
    const auto other = open();
    store_->setNode(path({u"a"}), *node(u"1"));
    EXPECT_EQ(outline(*other), "a(1)");
    other->setNode(path({u"a"}), *node(u"2"));
    other->setNode(path({u"b"}), *node(u"3"));
    EXPECT_EQ(outline(*store_), "a(2) b(3)");
    store_->removePath(path({u"a"}));
    EXPECT_EQ(outline(*other), "b(3)");
}

TEST_P(StoreTest, WhatDoesNotChangeIsNotWritten) {
    const std::map<MetadataPath, std::shared_ptr<MetadataNode>> nodes = {{path({u"a"}), node(u"1")},
                                                                         {path({u"a", u"b"}), node(u"2")}};
    const std::vector<MetadataPath> paths = {MetadataPath(), path({u"a"}), path({u"a", u"b"}), path({u"c"})};
    store_->setNodes(nodes);
    store_->setPaths(paths);
    const auto listTimes = [&] {
        std::map<std::filesystem::path, std::filesystem::file_time_type> times;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_.std()))
            times[entry.path()] = entry.last_write_time();
        return times;
    };
    const auto before = listTimes();
    store_->setNodes(nodes);
    store_->setNode(path({u"a"}), *node(u"1"));
    store_->addPath(path({u"c"}));
    store_->setPaths(paths);
    store_->removePaths({path({u"z"})});
    open()->setPaths(paths);
    EXPECT_EQ(listTimes(), before);
}

TEST_P(StoreTest, RefusesAnotherKindOfProject) {
    const char16_t* const other = GetParam() == std::u16string(u"monolithic") ? u"fixedPath" : u"monolithic";
    openStore(other, folder_.path())->setNode(path({u"a"}), *node(u"1"));
    EXPECT_THROW(open(), MetadataReadFailure);
    EXPECT_EQ(outline(*openStore(other, folder_.path())), "a(1)");
}

TEST_P(StoreTest, ChangesAreAnnounced) {
    struct Seen {
        std::size_t created = 0, modified = 0, deleted = 0;
    } seen;
    const auto manager = std::make_shared<project::metadata::FileJobManager>();
    manager->onPreWrite([&](const auto& created, const auto& modified, const auto& deleted) {
        seen = {created.size(), modified.size(), deleted.size()};
        return nullptr;
    });
    auto context = host::ServiceFramework::getFramework()->GetBundleContext();
    auto registration = context.RegisterService<project::metadata::FileJobManager>(manager);
    const bool isMonolithic = GetParam() == std::u16string(u"monolithic");

    store_->setNode(path({u"a", u"b"}), *node(u"1"));
    EXPECT_EQ(seen.created, isMonolithic ? 1U : 3U);
    store_->setNode(path({u"a", u"b"}), *node(u"2"));
    EXPECT_EQ(seen.modified, 1U);
    EXPECT_EQ(seen.created, 0U);
    store_->removePath(path({u"a"}));
    EXPECT_EQ(seen.deleted, isMonolithic ? 0U : 2U);
    registration.Unregister();
    seen = {};
    store_->addPath(path({u"c"}));
    EXPECT_EQ(seen.created + seen.modified, 0U);
}

INSTANTIATE_TEST_SUITE_P(Stores, StoreTest, testing::Values(u"fixedPath", u"monolithic"),
                         [](const auto& store) { return host::toUtf8(store.param); });

}  // namespace
