// What a watch tells after random changes is what a comparison of all before with all after tells, and it reads all
// again only where it has to.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <random>
#include <thread>

#include "host/Text.hpp"
#include "operations/Errors.hpp"
#include "operations/ProjectWatch.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "tests/support/TempFolder.hpp"

namespace {

namespace fs = std::filesystem;
namespace pm = project::metadata;
using pm::MetadataPath;

struct ReadingCounter : operations::Observer {
    std::unique_ptr<operations::Progress> start(const std::string& work) override {
        ++readings;
        return Observer::start(work);
    }
    int readings = 0;
};

std::vector<std::string> describe(const std::vector<operations::PathDiff>& diffs) {
    std::vector<std::string> lines;
    for (const auto& diff : diffs) {
        std::string line = diff.path.getPath().empty() ? "/" : host::toUtf8(diff.path.string());
        line += std::string(diff.before ? " -" : "") + (diff.after ? " +" : "") + (diff.isMoved ? " moved" : "");
        if (diff.node && diff.node->before)
            line += " from " + host::toUtf8(diff.node->before->get(u"K"));
        if (diff.node && diff.node->after)
            line += " to " + host::toUtf8(diff.node->after->get(u"K"));
        lines.push_back(std::move(line));
    }
    return lines;
}

class ProjectWatchTest : public testing::TestWithParam<const char16_t*> {
protected:
    ProjectWatchTest() {
        alarm(120);  // rather than for ever, if a change is missed
        fs::create_directories(root_);
        store_ = pm::getNamedFactory(GetParam())->createManager(test::toPath(root_));
        for (int i = 0; i < 8; ++i)
            set();
    }
    ~ProjectWatchTest() override { alarm(0); }

    int pick(std::size_t count) {
        return static_cast<int>(std::uniform_int_distribution<std::size_t>(0, count - 1)(random_));
    }

    /// Few, so that what is made is often what has gone; one has a name that is too long for a file.
    MetadataPath pickPath() {
        const std::vector<std::u16string> names{u"a", u"b.xml", u"c|c", std::u16string(300, u'n')};
        std::vector<pm::PathElement> steps;
        for (int depth = pick(4); depth > 0; --depth)
            steps.emplace_back(u"F", names[static_cast<std::size_t>(pick(names.size()))]);
        return MetadataPath(std::move(steps));
    }

    operations::MetadataTree read() {
        operations::Observer observer;
        return operations::readTree(test::toPath(root_), observer);
    }

    void set(const MetadataPath& path) {
        pm::MetadataNodeSpecification node(u"Info");
        node.put(u"K", host::fromUtf8(std::to_string(++number_)));
        store_->getNode(path);
        store_->setNode(path, node);
    }
    void set() { set(pickPath()); }

    std::vector<MetadataPath> list() {
        std::vector<MetadataPath> paths;
        const std::function<void(const MetadataPath&)> add = [&](const MetadataPath& path) {
            paths.push_back(path);
            for (const MetadataPath& child : store_->getChildren(path))
                add(child);
        };
        add({});
        for (const MetadataPath& path : paths)
            store_->hasNode(path);
        return paths;
    }

    void changeThroughStore() {
        auto paths = list();
        switch (pick(5)) {
            case 0:
                store_->removePath(pickPath());
                break;
            case 1:
                store_->addPath(pickPath());
                break;
            case 2:
                std::shuffle(paths.begin(), paths.end(), random_);
                store_->setPaths(paths);
                break;
            case 3:
                store_->removeNode(pickPath());
                break;
            default:
                set();
        }
    }

    /// What others do without a store: to a folder of paths, to the metadata folder, or to what is none of it.
    void changeByHand() {
        const fs::path metadata = root_ / "resources/project";
        switch (pick(4)) {
            case 0:
                fs::copy(root_ / "resources", root_ / "copy", fs::copy_options::recursive);
                fs::rename(root_ / "resources", root_ / ("old" + std::to_string(++number_)));
                fs::rename(root_ / "copy", root_ / "resources");
                break;
            case 1:
                if (fs::exists(metadata / "F=a") && !fs::exists(metadata / "F=z"))
                    fs::rename(metadata / "F=a", metadata / "F=z");
                break;
            case 2:
                fs::remove_all(metadata / "F=z");
                break;
            default:
                test::writeBytes(metadata / "note.txt", "note");
                test::writeBytes(root_ / "other/note.txt", std::to_string(++number_));
        }
    }

    /// Rounds of changes, each told at once.
    /// @return how often everything was read
    int follow(const std::function<void()>& change) {
        ReadingCounter counter;
        operations::ProjectWatch watch(test::toPath(root_ / ""), counter);
        for (int round = 0; round < 20; ++round) {
            const auto before = read();
            for (int i = pick(4); i >= 0; --i)
                change();
            set({});  // so that there is something to tell
            const auto after = read();
            const auto told = describe(watch.wait());
            EXPECT_EQ(told, describe(operations::diffTrees(before, after))) << "round " << round;
            if (HasFailure())
                break;
        }
        return counter.readings;
    }

    const test::TempFolder folder_;
    const fs::path root_ = folder_ / "project";
    std::mt19937 random_{7};  // NOLINT(cert-msc32-c, cert-msc51-cpp): the same each time
    std::unique_ptr<pm::MetadataManager> store_;
    int number_ = 0;
};

TEST_P(ProjectWatchTest, tellsWhatAComparisonOfAllTells) {
    const int readings = follow([this] { changeThroughStore(); });
    if (std::u16string_view(GetParam()) == u"fixedPath") {
        EXPECT_EQ(readings, 1);
        EXPECT_GT(follow([this] { pick(2) == 0 ? changeByHand() : changeThroughStore(); }), 1);
    }
}

/// A path of steps with one letter each.
MetadataPath path(const std::u16string& names) {
    std::vector<pm::PathElement> steps;
    for (const char16_t name : names)
        steps.emplace_back(u"G", std::u16string(1, name));
    return MetadataPath(std::move(steps));
}

TEST_P(ProjectWatchTest, tellsWhatChangesInAFolderThatWasRenamed) {
    if (std::u16string_view(GetParam()) != u"fixedPath")
        return;
    set(path(u"ab"));
    operations::Observer observer;
    operations::ProjectWatch watch(test::toPath(root_), observer);
    for (const auto& change : std::vector<std::function<void()>>{
             [&] { fs::rename(root_ / "resources/project/G=a", root_ / "resources/project/G=z"); },
             [&] { set(path(u"zb")); }}) {
        const auto before = read();
        change();
        EXPECT_EQ(describe(watch.wait()), describe(operations::diffTrees(before, read())));
    }
}

TEST_P(ProjectWatchTest, tellsWhatIsInAFolderThatIsMadeAnewAtOnce) {
    if (std::u16string_view(GetParam()) != u"fixedPath")
        return;
    set(path(u"ab"));
    set(path(u"cbx"));
    const auto before = read();
    ReadingCounter counter;
    operations::ProjectWatch watch(test::toPath(root_), counter);
    fs::remove_all(root_ / "resources/project/G=a");
    fs::copy(root_ / "resources/project/G=c", root_ / "resources/project/G=a", fs::copy_options::recursive);
    EXPECT_EQ(describe(watch.wait()), describe(operations::diffTrees(before, read())));
    EXPECT_EQ(counter.readings, 1);
}

TEST_P(ProjectWatchTest, restsAsLongAsNothingChanges) {
    store_ = nullptr;
    ReadingCounter counter;
    operations::ProjectWatch watch(test::toPath(root_), counter);
    std::thread other([this] {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        store_ = pm::getMetadataManagerFor(test::toPath(root_));
        set();
    });
    EXPECT_EQ(watch.wait().size(), 1U);
    EXPECT_LE(counter.readings, 4);
    other.join();
}

TEST_P(ProjectWatchTest, endsWithAnErrorWhereAFileHoldsMore) {
    if (std::u16string_view(GetParam()) != u"fixedPath")
        return;
    set(MetadataPath({pm::PathElement(u"F", u"good")}));
    const fs::path file = root_ / "resources/project/F=good.xml";
    ReadingCounter counter;
    operations::ProjectWatch watch(test::toPath(root_), counter);
    test::writeBytes(file, test::readBytes(file) + "<!-- note -->");
    EXPECT_THROW(watch.wait(), operations::OperationError);
}

INSTANTIATE_TEST_SUITE_P(stores, ProjectWatchTest, testing::Values(u"fixedPath", u"monolithic", u"sqlite"));

}  // namespace
