// A change of several batches, whatever call of the system fails in it: it is made, or it is taken back, or it is said
// what has become of it; and no node is lost.

#include <gtest/gtest.h>

#include <map>

#include "host/Text.hpp"
#include "operations/ProjectEdit.hpp"
#include "operations/TreeWalk.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "tests/faults/SystemFaults.hpp"
#include "tests/support/ChildProcess.hpp"
#include "tests/support/TempFolder.hpp"

namespace {

namespace fs = std::filesystem;
namespace pm = project::metadata;

enum Ending { isMade, isAsBefore, isMadeInPart, isMadeInSpite };

class WayBackTest : public testing::TestWithParam<const char16_t*> {
protected:
    WayBackTest() {
        fs::create_directories(template_);
        const auto store = pm::getNamedFactory(GetParam())->createManager(test::toPath(template_));
        for (const pm::MetadataPath& path : {a_, b_, c_, e_}) {
            pm::MetadataNodeSpecification node(u"Info");
            node.put(u"Name", path.getLeaf().getLocation());
            store->setNode(path, node);
        }
        store->addPath(d_);
    }

    /// A node is changed, one goes, a path moves with what is below it, and one goes: three batches.
    static void edit(pm::MetadataManager& store) {
        operations::Observer observer;
        operations::ProjectEdit edit(store, observer);
        edit.set({c_}, {{u"Changed", u"1"}}, {});
        edit.removeNode(e_);
        edit.move(a_, target_);
        edit.remove({d_});
        edit.apply(edit.finish());
    }

    using Content = std::vector<std::string>;

    Content read() const {
        const auto store = pm::getMetadataManagerFor(test::toPath(root_));
        Content content;
        for (operations::TreeWalk walk(*store, {}); walk.next();) {
            const auto node = walk.readNode();
            std::string line = host::toUtf8(walk.path().string());
            for (const std::u16string& key : node ? node->getAttributeKeys() : std::vector<std::u16string>())
                line += ' ' + host::toUtf8(key + u'=' + node->get(key));
            content.push_back(line);
        }
        return content;
    }

    void reset() const {
        fs::remove_all(root_);
        fs::copy(template_, root_, fs::copy_options::recursive);
    }

    /// Edits in a process of its own, which `plan` disturbs.
    Ending tryOut(const test::FaultPlan& plan, bool& wasDisturbed) const {
        reset();
        test::ChildProcess child([&] {
            const auto store = pm::getMetadataManagerFor(test::toPath(root_));
            test::trapSystemCalls();
            test::startFaults(plan);
            Ending ending = isMade;
            try {
                edit(*store);
            } catch (const operations::OperationError& error) {
                ending = std::string(error.what()).find("in part") != std::string::npos ? isMadeInPart : isMadeInSpite;
            } catch (const std::exception&) {
                ending = isAsBefore;
            }
            _exit(ending + (test::stopFaults().injected > 0 ? 10 : 0));
        });
        const int status = child.wait();
        EXPECT_GE(status, 0);
        wasDisturbed = status >= 10;
        return static_cast<Ending>(status % 10);
    }

    test::TempFolder folder_{test::memoryFolder()};
    const fs::path template_ = folder_ / "template", root_ = folder_ / "project";
    static const pm::MetadataPath a_, b_, c_, d_, e_, target_;
};

const pm::MetadataPath WayBackTest::a_{{{u"F", u"a"}}};
const pm::MetadataPath WayBackTest::b_{{{u"F", u"a"}, {u"F", u"b"}}};
const pm::MetadataPath WayBackTest::c_{{{u"F", u"c"}}};
const pm::MetadataPath WayBackTest::d_{{{u"F", u"d"}}};
const pm::MetadataPath WayBackTest::e_{{{u"F", u"e"}}};
const pm::MetadataPath WayBackTest::target_{{{u"F", u"c"}, {u"F", u"x"}}};

// SQLite waits some seconds after many a failed call.
INSTANTIATE_TEST_SUITE_P(Stores, WayBackTest, testing::Values(u"fixedPath", u"monolithic"),
                         [](const auto& store) { return host::toUtf8(store.param); });

TEST_P(WayBackTest, AFailureLeavesNothingHalfDoneInSilence) {
    reset();
    const Content before = read();
    edit(*pm::getMetadataManagerFor(test::toPath(root_)));
    const Content after = read();
    std::map<Ending, int> endings;
    for (const bool isLasting : {false, true}) {
        bool wasDisturbed = true;
        for (int call = 1; wasDisturbed; call += 2) {
            SCOPED_TRACE(std::to_string(call) + (isLasting ? " and all after it" : ""));
            test::FaultPlan plan;
            plan.failAt = call;
            plan.isLasting = isLasting;
            plan.variant = call;
            const Ending ending = tryOut(plan, wasDisturbed);
            ++endings[ending];
            const Content content = read();
            if (ending == isMadeInPart) {
                for (const char* name : {"=a", "=b", "=c"}) {
                    EXPECT_TRUE(std::any_of(content.begin(), content.end(), [&](const std::string& line) {
                        return line.find(name) != std::string::npos;
                    })) << name;
                }
            } else {
                EXPECT_EQ(content, ending == isAsBefore ? before : after);
            }
        }
    }
    EXPECT_GT(endings[isMade], 1);
    EXPECT_GT(endings[isAsBefore], 20);
    EXPECT_GT(endings[isMadeInPart], 2);
}

TEST_P(WayBackTest, WhatOthersHaveRemovedMeanwhileWasNotRenamed) {
    reset();
    const auto store = pm::getMetadataManagerFor(test::toPath(root_));
    operations::Observer observer;
    operations::ProjectEdit edit(*store, observer);
    edit.move(c_, pm::MetadataPath(std::vector{pm::PathElement(u"F", u"z")}));
    const operations::StoreChange change = edit.finish();
    pm::getMetadataManagerFor(test::toPath(root_))->removePath(c_);
    const Content content = read();
    EXPECT_THROW(edit.apply(change), pm::MetadataWriteFailure);
    EXPECT_EQ(read(), content);
}

TEST_P(WayBackTest, WhatOthersHaveRemovedMeanwhileIsAddedAnewWhereThatIsWanted) {
    reset();
    const auto store = pm::getMetadataManagerFor(test::toPath(root_));
    int attempts = 0;
    operations::changeStore(*store, [&] {
        operations::StoreChange change;
        const auto children = store->getChildren({});
        const bool isThere = std::find(children.begin(), children.end(), c_) != children.end();
        (isThere ? change.updated : change.added).push_back(c_);
        change.nodes.emplace_back(c_, std::make_shared<pm::MetadataNodeSpecification>(u"New"));
        if (++attempts == 1) {
            store->getNode(c_);
            pm::getMetadataManagerFor(test::toPath(root_))->removePath(c_);
        }
        return change;
    });
    EXPECT_EQ(attempts, 2);
    EXPECT_EQ(pm::getMetadataManagerFor(test::toPath(root_))->getNode(c_)->getName(), u"New");
}

}  // namespace
