// Every store keeps the contract; and what the library does with stores, found and opened the way it does it.

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <random>
#include <thread>

#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkEvent.h>

#include "host/Interruption.hpp"
#include "host/ServiceFramework.hpp"
#include "project/exception/ProjectException.hpp"
#include "project/metadata/MetadataCopy.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/PathRenamer.hpp"
#include "project/metadata/RepeatableRead.hpp"
#include "project/metadata/SingleFileExport.hpp"
#include "project/metadata/WholeContentWrite.hpp"
#include "store_testing/StoreContractTest.hpp"
#include "tests/stores/StoreHelpers.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/MessageOf.hpp"
#include "tests/support/Settings.hpp"

using namespace test;
using project::metadata::MetadataWriteFailure;

namespace project::store_testing {

namespace {

std::vector<TestedStore> listStores() {
    std::vector<TestedStore> stores;
    for (const std::u16string& name : builtStores())
        stores.push_back({host::toUtf8(name), [name] { return metadata::getNamedFactory(name); }});
    return stores;
}

INSTANTIATE_TEST_SUITE_P(Stores, StoreContractTest, rulesFor(listStores()), nameOfRule);

}  // namespace

}  // namespace project::store_testing

namespace {

class StoreTest : public testing::TestWithParam<std::u16string> {
protected:
    TempFolder folder_;
    std::unique_ptr<MetadataManager> store_ = openStore(GetParam(), folder_.path());
};

INSTANTIATE_TEST_SUITE_P(Stores, StoreTest, testing::ValuesIn(builtStores()), nameOfStore);

TEST_P(StoreTest, LibraryFindsTheStoreOfAProject) {
    EXPECT_EQ(project::metadata::getMetadataManagerFor(folder_.path()), nullptr);
    store_->setNode(path({u"a"}), *node(u"1"));
    const auto found = project::metadata::getMetadataManagerFor(folder_.path());
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(outline(*found), "a(1)");
}

TEST_P(StoreTest, WhatChangesNothingOrIsRefusedLeavesANewFolderEmpty) {
    const auto expectEmpty = [&](const char* what) {
        EXPECT_TRUE(std::filesystem::is_empty(folder_.std())) << what;
        std::filesystem::remove_all(folder_ / "resources");
        store_ = openStore(GetParam(), folder_.path());
    };
    store_->removeNode(MetadataPath());
    expectEmpty("removeNode of the root path");
    store_->removeNode(path({u"a"}));
    expectEmpty("removeNode");
    store_->removePath(MetadataPath());
    expectEmpty("removePath of the root path");
    store_->removePaths({});
    expectEmpty("removePaths of nothing");
    store_->setNodes({});
    expectEmpty("setNodes of nothing");
    const MetadataPath tooLong = path(std::vector<std::u16string>(251, u"s"));
    EXPECT_THROW(store_->setNodes({{path({u"a"}), node(u"1")}, {tooLong, node(u"1")}}), MetadataWriteFailure);
    expectEmpty("setNodes of a path that is too long");
    EXPECT_THROW(store_->setNode(tooLong, *node(u"1")), MetadataWriteFailure);
    expectEmpty("setNode of a path that is too long");
    EXPECT_THROW(store_->addPath(tooLong), MetadataWriteFailure);
    expectEmpty("addPath of a path that is too long");
    EXPECT_THROW(store_->setPaths({tooLong}), MetadataWriteFailure);
    expectEmpty("setPaths of a path that is too long");
    if (auto* const renamer = dynamic_cast<project::metadata::PathRenamer*>(store_.get())) {
        EXPECT_NE(messageOf<MetadataWriteFailure>([&] {
                      renamer->renamePath(path({u"a"}), PathElement(u"t", u"b"));
                  }).find("\"t:a\", which was to be renamed, is not there"),
                  std::string::npos);
        expectEmpty("renamePath");
    }
    // But a path that is there for each project, and an order of no paths, are a content.
    store_->addPath(MetadataPath());
    EXPECT_NE(project::metadata::getMetadataManagerFor(folder_.path()), nullptr);
    std::filesystem::remove_all(folder_ / "resources");
    openStore(GetParam(), folder_.path())->setPaths({});
    EXPECT_NE(project::metadata::getMetadataManagerFor(folder_.path()), nullptr);
}

TEST_P(StoreTest, ARelativeRootIsThatOfTheFolderInWhichTheStoreWasOpened) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::create_directories(folder_ / "elsewhere");
    std::filesystem::current_path(folder_.std());
    store_ = openStore(GetParam(), u"project");
    std::filesystem::current_path(folder_ / "elsewhere");
    store_->setNode(path({u"a"}), *node(u"1"));
    std::filesystem::current_path(folder_.std());
    EXPECT_EQ(outline(*store_), "a(1)");
    store_ = openStore(GetParam(), u"project");
    std::filesystem::current_path(folder_ / "elsewhere");
    EXPECT_EQ(outline(*store_), "a(1)");
    store_->setNode(path({u"a"}), *node(u"2"));
    std::filesystem::current_path(before);
    EXPECT_TRUE(std::filesystem::is_empty(folder_ / "elsewhere"));
    EXPECT_EQ(outline(*openStore(GetParam(), folder_.path() / u"project")), "a(2)");
}

TEST_P(StoreTest, ANodeOfAnotherKindIsRefusedIfItHoldsWhatNoNodeTakes) {
    struct ForeignNode : MetadataNodeSpecification {
        const std::u16string& get(std::u16string /*key*/) const override { return value; }
        std::vector<std::u16string> getAttributeKeys() const override { return {u"Key"}; }
        std::u16string value;
    };
    const auto foreign = std::make_shared<ForeignNode>();
    foreign->value = u"\u0001";
    store_->setNode(path({u"a"}), *node(u"1"));
    EXPECT_THROW(store_->setNode(path({u"a"}), *foreign), project::exception::ProjectException);
    EXPECT_THROW(store_->setNodes({{path({u"b"}), node(u"2")}, {path({u"c"}), foreign}}),
                 project::exception::ProjectException);
    EXPECT_EQ(outline(*store_), "a(1)");
    foreign->value = u"sound";
    store_->setNode(path({u"a"}), *foreign);
    foreign->value = u"changed afterwards";
    EXPECT_EQ(store_->getNode(path({u"a"}))->get(u"Key"), u"sound");
}

TEST_P(StoreTest, OpenStoresCanBeSavedOnceTheFrameworkHasStopped) {
    store_.reset();
    ChildProcess child([&] {
        const auto store = openStore(GetParam(), folder_.path());
        store->setNode(path({u"a"}), *node(u"1"));
        const auto framework = host::ServiceFramework::getFramework();
        framework->Stop();
        framework->WaitForStop(std::chrono::milliseconds::zero());
        store->setNode(path({u"a"}), *node(u"2"));
        store->setPaths({path({u"b"}), path({u"a"})});
    });
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(outline(*openStore(GetParam(), folder_.path())), "b a(2)");
}

TEST_P(StoreTest, AChangeThatIsStoppedLeavesEverythingAsItWas) {
    store_->setNode(path({u"a"}), *node(u"1"));
    host::Interruption cancel;
    {
        const host::Interruption::Scope scope(cancel);
        store_->setNode(path({u"a"}), *node(u"2"));
        cancel.request();
        EXPECT_THROW(store_->setNode(path({u"a"}), *node(u"3")), host::InterruptedException);
        EXPECT_THROW(store_->setPaths({path({u"b"})}), host::InterruptedException);
        // Others are not meant.
        std::thread([&] { EXPECT_EQ(outline(*openStore(GetParam(), folder_.path())), "a(2)"); }).join();
    }
    store_->addPath(path({u"b"}));
    EXPECT_EQ(outline(*openStore(GetParam(), folder_.path())), "a(2) b");
}

TEST_P(StoreTest, CopiesIntoOtherStoresAreEqualInContentAndOrder) {
    std::map<MetadataPath, std::shared_ptr<MetadataNode>> nodes;
    std::vector<MetadataPath> paths;
    for (const std::u16string& text : {std::u16string(u".."), std::u16string(u"\x1<&\""), std::u16string(1, 0xD800),
                                       std::u16string(10000, u'/'), std::u16string(u"a.xml")}) {
        for (const MetadataPath& each : {path({text}), path({u"a", text})}) {
            nodes[each] = node(u"\r\n\t \"<&>\U0001F600");
            nodes[each]->createChildNode().createChildNode(u"deep");
            paths.insert(paths.begin(), each);
        }
    }
    store_->setNodes(nodes);
    store_->setPaths(paths);
    const Content expected = read(*openStore(GetParam(), folder_.path()));
    for (const std::u16string& other : fileStores()) {
        const TempFolder copyFolder;
        project::metadata::copyMetadata(*store_, *openStore(other, copyFolder.path()));
        EXPECT_EQ(read(*openStore(other, copyFolder.path())), expected);
    }
}

TEST_P(StoreTest, ExportReadsBackAsTheSameContent) {
    store_->setNode(path({u"b", u"a"}), *node(u"1"));
    store_->setNode(path({u"a"}), *node(u"2"));
    const TempFolder target;
    const auto file = target / "resources/project/Project.xml";
    std::filesystem::create_directories(file.parent_path());
    // The user's choice of folder for new projects has no say in it.
    const SettingsOverride settings({{{"korvex.project.creation", "DefaultMetadataRoot"}, u".TolvaneProject"},
                                     {{"korvex.project.metadata.postgresql", "AllowedServers"}, u"test"}});
    project::metadata::writeMetadataToSingleFile(folder_.path(), toPath(file));
    EXPECT_EQ(read(*openStore(u"monolithic", target.path())), read(*store_));
}

/// What stores are to say of some paths, kept in the plainest way.
struct Model {
    std::map<std::vector<std::u16string>, std::optional<std::u16string>> paths;     // with the value of the node
    std::map<std::vector<std::u16string>, std::vector<std::u16string>> childrenOf;  // in order

    void add(const std::vector<std::u16string>& steps, const std::optional<std::u16string>& value) {
        paths[steps] = value;
        childrenOf[{steps.begin(), steps.end() - 1}].push_back(steps.back());
    }
};

/// Asks `store` the three questions of a copy about `steps`, in the given order, each after `between` was called.
template <class Between>
void expectAsModel(const MetadataManager& store, const Model& model, const std::vector<std::u16string>& steps,
                   const Between& between) {
    const auto wanted = [&] {
        const auto found = model.paths.find(steps);
        return found == model.paths.end() ? std::nullopt : found->second;
    };
    between();
    ASSERT_EQ(store.hasNode(path(steps)), wanted().has_value());
    between();
    const auto node = store.getNode(path(steps));
    ASSERT_EQ(node ? std::optional(node->get(u"Value")) : std::nullopt, wanted());
    between();
    std::vector<std::u16string> children;
    for (const MetadataPath& child : store.getChildren(path(steps)))
        children.push_back(child.getPath().back().getLocation());
    const auto known = model.childrenOf.find(steps);
    ASSERT_EQ(children, known == model.childrenOf.end() ? std::vector<std::u16string>() : known->second);
}

TEST_P(StoreTest, ARenamedPathKeepsItsNodeAndItsPlace) {
    auto* const renamer = dynamic_cast<project::metadata::PathRenamer*>(store_.get());
    EXPECT_EQ(renamer != nullptr, GetParam() != u"postgresql");
    if (!renamer)
        return;
    store_->setNodes({{path({u"a"}), node(u"1")}, {path({u"b"}), node(u"2")}, {path({u"c", u"d"}), node(u"3")}});
    store_->addPath(path({u"c", u"e"}));
    for (int i = 0; i < 30; ++i)
        store_->setNode(path({u"b" + number(i)}), *node(u""));
    store_->removePath(path({u"b0"}));
    const auto other = openStore(GetParam(), folder_.path());
    const std::size_t size = outline(*other).size();
    const auto expectOutline = [&](const std::string& expected) {
        const auto third = openStore(GetParam(), folder_.path());
        for (const auto* store : {store_.get(), other.get(), third.get()}) {
            EXPECT_EQ(outline(*store).substr(0, expected.size()), expected);
            EXPECT_EQ(outline(*store).size(), size);
        }
    };
    expectOutline("a(1) b(2) c c/d(3) c/e b1()");
    renamer->renamePath(path({u"b"}), {u"t", u"x"});
    expectOutline("a(1) x(2) c c/d(3) c/e b1()");
    renamer->renamePath(path({u"c", u"d"}), {u"t", u"y"});
    renamer->renamePath(path({u"c", u"e"}), {u"t", u"f"});
    renamer->renamePath(path({u"c", u"f"}), {u"t", u"f"});
    expectOutline("a(1) x(2) c c/y(3) c/f b1()");
    // The old name is free, and what comes next is the last.
    store_->setNode(path({u"b"}), *node(u"4"));
    EXPECT_EQ(store_->getChildren(MetadataPath()).back(), path({u"b"}));
    store_->removePath(path({u"b"}));

    const auto refused = [&](const MetadataPath& from, const std::u16string& to, const std::string& why) {
        const std::string message = messageOf<project::metadata::MetadataWriteFailure>([&] {
            renamer->renamePath(from, {u"t", to});
        });
        EXPECT_NE(message.find(why), std::string::npos) << message;
        expectOutline("a(1) x(2) c c/y(3) c/f b1()");
    };
    refused(MetadataPath(), u"z", "root path");
    refused(path({u"b"}), u"z", "is not there");
    refused(path({u"b"}), u"b", "is not there");
    refused(path({u"c"}), u"z", "has paths below it");
    refused(path({u"x"}), u"a", "\"t:a\" already");
    refused(path({u"x"}), u"c", "\"t:c\" already");
    refused(path({u"x"}), std::u16string(2'000'000, u'"'), "read back");

    // Nobody overwrites what he has not seen.
    other->setNode(path({u"x"}), *node(u"5"));
    EXPECT_THROW(renamer->renamePath(path({u"x"}), {u"t", u"z"}), project::metadata::MetadataWriteFailure);
    store_->getNode(path({u"x"}));
    renamer->renamePath(path({u"x"}), {u"t", u"z"});
    expectOutline("a(1) z(5) c c/y(3) c/f b1()");
}

TEST_P(StoreTest, AReadingMayStayBehindOthersButNotBehindItsOwnChanges) {
    store_->setNodes({{path({u"a"}), node(u"1")}, {path({u"a", u"b"}), node(u"2")}, {path({u"c"}), node(u"3")}});
    store_ = openStore(GetParam(), folder_.path());
    const auto other = openStore(GetParam(), folder_.path());
    const std::string old = "a(1) a/b(2) c(3)";
    {
        const project::metadata::RepeatableRead reading(*store_);
        EXPECT_EQ(outline(*store_), old);
        { const project::metadata::RepeatableRead inner(*store_); }
        other->setNode(path({u"a"}), *node(u"4"));
        other->addPath(path({u"a", u"d"}));
        other->removePath(path({u"c"}));
        // Nothing of that need be seen, and nothing of it is overwritten.
        const bool staysBehind = GetParam() == u"fixedPath";
        EXPECT_EQ(outline(*store_), staysBehind ? old : "a(4) a/b(2) a/d");
        if (staysBehind) {
            EXPECT_THROW(store_->setNode(path({u"a"}), *node(u"5")), project::metadata::MetadataWriteFailure);
            EXPECT_EQ(outline(*store_), "a(4) a/b(2) a/d");
        }
        store_->setNode(path({u"e"}), *node(u"6"));
        EXPECT_EQ(outline(*store_), "a(4) a/b(2) a/d e(6)");
        store_->setNode(path({u"a", u"b"}), *node(u"7"));
        EXPECT_EQ(outline(*store_), "a(4) a/b(7) a/d e(6)");
        store_->removePath(path({u"a", u"d"}));
        EXPECT_EQ(outline(*store_), "a(4) a/b(7) e(6)");
        EXPECT_EQ(outline(*other), "a(4) a/b(7) e(6)");
        other->setNode(path({u"e"}), *node(u"8"));
    }
    EXPECT_EQ(outline(*store_), "a(4) a/b(7) e(8)");
}

TEST_P(StoreTest, WhoeverGoesThroughTheTreeSeesWhatOthersChangeMeanwhileAtOnce) {
    Model model;
    std::map<MetadataPath, std::shared_ptr<MetadataNode>> nodes;
    for (int i = 0; i < 4; ++i) {
        for (int j = -1; j < 30; ++j) {
            std::vector<std::u16string> steps{number(i)};
            if (j >= 0)
                steps.push_back(u"n" + number(100 + j));
            model.add(steps, u"old");
            nodes[path(steps)] = node(u"old");
        }
    }
    store_->setNodes(nodes);
    // Once nobody has written since the project was opened, then with all that a store keeps for its own writing.
    for (const bool isWriterNew : {true, false}) {
        if (isWriterNew)
            store_.reset();
        const auto reader = openStore(GetParam(), folder_.path());
        if (!store_)
            store_ = openStore(GetParam(), folder_.path());
        std::mt19937 random(isWriterNew ? 1 : 2);  // NOLINT: the same in each run
        int changes = 0;
        std::vector<std::u16string> place;
        const auto change = [&] {
            if (random() % 40 != 0)
                return;
            ++changes;
            // Mostly what comes next.
            const std::u16string value = u"new" + number(changes);
            switch (random() % 3) {
                case 0:
                    model.paths[place] = value;
                    store_->setNode(path(place), *node(value));
                    break;
                case 1:
                    model.paths[place].reset();
                    store_->removeNode(path(place));
                    break;
                default:
                    place.push_back(u"below" + number(changes));
                    model.add(place, value);
                    store_->setNode(path(place), *node(value));
                    place.pop_back();
            }
        };
        const auto all = model.paths;
        for (const auto& entry : all) {
            place = entry.first;
            ASSERT_NO_FATAL_FAILURE(expectAsModel(*reader, model, place, change)) << changes << " changes";
        }
        EXPECT_GT(changes, 3);
    }
}

TEST(MonolithicStoreTest, AWholeContentIsWrittenOnce) {
    const TempFolder folder;
    const std::filesystem::path file = folder / "resources/project/Project.xml";
    const auto store = openStore(u"monolithic", folder.path());
    {
        const project::metadata::WholeContentWrite writing(*store);
        store->setNodes({{path({u"b"}), node(u"1")}, {path({u"c"}), node(u"1")}});
        store->setNodes({{path({u"c"}), node(u"2")}});
        EXPECT_FALSE(std::filesystem::exists(file));
        store->setPaths({path({u"c"}), path({u"a"}), path({u"b"})});
    }
    const std::string written = readBytes(file);
    const Content all = read(*store);
    EXPECT_EQ(read(*openStore(u"monolithic", folder.path())), all);
    EXPECT_EQ(all.size(), 4U);
    EXPECT_TRUE(store->hasNode(path({u"b"})));
    EXPECT_EQ(describe(*store->getNode(path({u"c"}))), describe(*node(u"2")));
    {
        const project::metadata::WholeContentWrite writing(*store);
        store->setNodes({{path({u"c"}), node(u"4")}});
        EXPECT_THROW(store->setNodes({{path({u"e"}), node(std::u16string(1, u'\xD800'))}}), MetadataWriteFailure);
    }
    store->setPaths({path({u"c"}), path({u"a"}), path({u"b"})});
    EXPECT_EQ(readBytes(file), written);
    const project::metadata::WholeContentWrite writing(*store);
    store->setNodes({{path({u"c"}), node(u"3")}});
    openStore(u"monolithic", folder.path())->addPath(path({u"e"}));
    EXPECT_NE(messageOf<MetadataWriteFailure>([&] {
                  store->setPaths({path({u"c"})});
              }).find("changed since the nodes were set"),
              std::string::npos);
    EXPECT_EQ(read(*store).size(), 5U);
}

}  // namespace
