// The kit names the rule that a store breaks. Each broken store is a correct one with one fault.

#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "host/FileSystem.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"
#include "project/metadata/RepeatableRead.hpp"
#include "project/metadata/WholeContentWrite.hpp"
#include "store_testing/StoreContract.hpp"

namespace {

using project::metadata::MetadataManager;
using project::metadata::MetadataManagerFactory;
using project::metadata::MetadataNode;
using project::metadata::MetadataNodeSpecification;
using project::metadata::MetadataPath;
using project::metadata::PathElement;
using project::metadata::ProjectMetadataLocation;
using Nodes = std::map<MetadataPath, std::shared_ptr<MetadataNode>>;
using Paths = std::vector<MetadataPath>;

/// What stands in for an operation of the store `inner`; empty for the operation itself.
struct Faults {
    using Inner = MetadataManager&;
    host::Path root;                                           ///< of the project
    std::shared_ptr<int> readings = std::make_shared<int>(0);  ///< how many are going on
    std::shared_ptr<int> contents = std::make_shared<int>(0);  ///< likewise of whole contents
    std::function<void(Inner inner, const MetadataPath&, const MetadataNode&)> setNode;
    std::function<void(Inner inner, const MetadataPath&)> removeNode, addPath, removePath;
    std::function<std::unique_ptr<MetadataNode>(Inner inner, const MetadataPath&)> getNode;
    std::function<void(Inner inner, const Nodes&)> setNodes;
    std::function<void(Inner inner, const Paths&)> setPaths;
    /// Replaces the path that a reading or changing operation is called with.
    std::function<MetadataPath(const MetadataPath&)> mapPath;
    std::function<bool(MetadataManagerFactory& inner, const host::Path& root)> canManage;
};

class BrokenStore : public MetadataManager,
                    public project::metadata::RepeatableReader,
                    public project::metadata::WholeContentWriter {
public:
    BrokenStore(Faults faults, std::unique_ptr<MetadataManager> inner)
        : faults_(std::move(faults)), inner_(std::move(inner)) {}

    void setNode(const MetadataPath& path, const MetadataNode& node) override {
        faults_.setNode ? faults_.setNode(*inner_, path, node) : inner_->setNode(map(path), node);
    }
    void removeNode(const MetadataPath& path) override {
        faults_.removeNode ? faults_.removeNode(*inner_, path) : inner_->removeNode(map(path));
    }
    void addPath(const MetadataPath& path) override {
        faults_.addPath ? faults_.addPath(*inner_, path) : inner_->addPath(map(path));
    }
    void removePath(const MetadataPath& path) override {
        faults_.removePath ? faults_.removePath(*inner_, path) : inner_->removePath(map(path));
    }
    std::unique_ptr<MetadataNode> getNode(const MetadataPath& path) const override {
        return faults_.getNode ? faults_.getNode(*inner_, path) : inner_->getNode(map(path));
    }
    void setNodes(const Nodes& nodes) override {
        faults_.setNodes ? faults_.setNodes(*inner_, nodes) : inner_->setNodes(nodes);
    }
    void removePaths(const Paths& paths) override { inner_->removePaths(paths); }
    bool hasNode(const MetadataPath& path) const override { return inner_->hasNode(map(path)); }
    Paths getChildren(const MetadataPath& path) const override { return inner_->getChildren(path); }
    bool hasPath(const MetadataPath& path) const override { return inner_->hasPath(map(path)); }
    void setPaths(const Paths& paths) override {
        faults_.setPaths ? faults_.setPaths(*inner_, paths) : inner_->setPaths(paths);
    }
    void beginReading() const noexcept override { ++*faults_.readings; }
    void endReading() const noexcept override { --*faults_.readings; }
    void beginContent() noexcept override { ++*faults_.contents; }
    void endContent() noexcept override { --*faults_.contents; }

private:
    MetadataPath map(const MetadataPath& path) const { return faults_.mapPath ? faults_.mapPath(path) : path; }

    Faults faults_;
    std::unique_ptr<MetadataManager> inner_;
};

class BrokenFactory : public MetadataManagerFactory {
public:
    /// @param breakIt puts the fault in, anew for every store
    explicit BrokenFactory(std::function<void(Faults&)> breakIt) : breakIt_(std::move(breakIt)) {}

    std::unique_ptr<MetadataManager> createManager(const host::Path& root) override {
        return std::make_unique<BrokenStore>(makeFaults(root), inner_->createManager(root));
    }
    bool canManage(const host::Path& root) override {
        const Faults faults = makeFaults(root);
        return faults.canManage ? faults.canManage(*inner_, root) : inner_->canManage(root);
    }
    std::u16string getName() override { return inner_->getName(); }
    std::u16string getDescription() override { return inner_->getDescription(); }

private:
    Faults makeFaults(const host::Path& root) const {
        Faults faults;
        faults.root = root;
        breakIt_(faults);
        return faults;
    }

    std::function<void(Faults&)> breakIt_;
    std::shared_ptr<MetadataManagerFactory> inner_ = project::metadata::getNamedFactory(u"monolithic");
};

/// The path whose steps have the texts that `change` makes of theirs.
template <class Change>
auto mapTexts(Change change) {
    return [change](const MetadataPath& path) {
        std::vector<PathElement> elements;
        for (const PathElement& element : path.getPath())
            elements.emplace_back(change(element.getType()), change(element.getLocation()));
        return MetadataPath(elements);
    };
}

struct BrokenKind {
    std::string rule;  ///< that is broken; empty for none
    std::function<void(Faults&)> breakIt;
};

std::ostream& operator<<(std::ostream& stream, const BrokenKind& kind) {
    return stream << kind.rule;
}

const BrokenKind brokenKinds[] = {
    {"", [](Faults&) {}},
    {"FirstChangeMakesTheProject", [](Faults& faults) { faults.canManage = [](auto&, auto&) { return false; }; }},
    {"LeavesOtherProjectsAlone", [](Faults& faults) { faults.canManage = [](auto&, auto&) { return true; }; }},
    {"ReopenedStoreHasEverything",  // loses white space in values
     [](Faults& faults) {
         faults.getNode = [](auto& inner, auto& path) {
             auto node = inner.getNode(path);
             if (node && !node->get(u"space").empty())
                 node->put(u"space", u" x ");
             return node;
         };
     }},
    {"AddPathKeepsWhatIsThere",
     [](Faults& faults) {
         faults.addPath = [](auto& inner, auto& path) {
             inner.hasPath(path) && inner.hasNode(path) ? inner.removeNode(path) : inner.addPath(path);
         };
     }},
    {"RemoveNodeKeepsThePath",
     [](Faults& faults) {
         faults.removeNode = [](auto& inner, auto& path) {
             if (path.getPath().size() == 1 && inner.hasNode(path) && inner.getChildren(path).empty())
                 inner.removePath(path);
             else
                 inner.removeNode(path);
         };
     }},
    {"RemovePathRemovesAllBelow",
     [](Faults& faults) {
         faults.removePath = [](auto& inner, auto& path) {
             if (!path.getPath().empty())
                 inner.removePath(path);
         };
     }},
    {"SetPathsIsTheWholeContent",
     [](Faults& faults) {
         faults.setPaths = [](auto& inner, Paths paths) {
             paths.insert(paths.begin(), MetadataPath());  // keeps the root's node
             inner.setPaths(paths);
         };
     }},
    {"NodesAreCopies",
     [](Faults& faults) {
         const auto kept = std::make_shared<Nodes>();
         faults.setNodes = [kept](auto& inner, auto& nodes) {
             inner.setNodes(nodes);
             *kept = nodes;
         };
         faults.addPath = [kept](auto& inner, auto& path) {
             inner.setNodes(*kept);
             inner.addPath(path);
         };
     }},
    {"TakesNodesOfAnyClass",  // takes one whose keys repeat for one without any
     [](Faults& faults) {
         faults.setNodes = [](auto& inner, const Nodes& nodes) {
             for (const auto& [path, node] : nodes) {
                 const auto keys = node ? node->getAttributeKeys() : std::vector<std::u16string>();
                 if (keys.size() > 2 && keys.front() == keys.back()) {
                     inner.setNode(path, MetadataNodeSpecification());
                     return;
                 }
             }
             inner.setNodes(nodes);
         };
     }},
    {"KeepsHostileTextsApart",
     [](Faults& faults) { faults.mapPath = mapTexts([](auto& text) { return text == u"A" ? u"a" : text; }); }},
    {"KeepsLongTexts",
     [](Faults& faults) { faults.mapPath = mapTexts([](auto& text) { return text.substr(0, 9999); }); }},
    {"TellsPathsApartByTheirSteps",
     [](Faults& faults) {
         faults.mapPath = [](auto& path) {
             return path.string() == u"x:a:b" ? MetadataPath(std::vector{PathElement(u"x", u"a:b")}) : path;
         };
     }},
    {"RefusesWhatIsNotReadBack",
     [](Faults& faults) {
         faults.setNode = [](auto& inner, auto& path, auto& node) {
             if (node.getName().empty())
                 inner.setNode(path, MetadataNodeSpecification());
             else
                 inner.setNode(path, node);
         };
     }},
    {"RefusesWholeBatches",
     [](Faults& faults) {
         faults.setNodes = [](auto& inner, Nodes nodes) {
             try {
                 inner.setNodes(nodes);
             } catch (const project::metadata::MetadataWriteFailure&) {
                 // A part of the batch gets through.
                 nodes.erase(std::next(nodes.begin()), nodes.end());
                 if (nodes.begin()->second->get(u"Value") == u"2")
                     inner.setNodes(nodes);
                 throw;
             }
         };
     }},
    {"WritesOnlyWhatChanges",
     [](Faults& faults) {
         faults.addPath = [](auto& inner, auto& path) {
             if (inner.hasPath(path) && !inner.hasNode(path)) {
                 inner.setNode(path, MetadataNodeSpecification());
                 inner.removeNode(path);
             }
             inner.addPath(path);
         };
     }},
    {"StaleNodeIsNotReplaced",
     [](Faults& faults) {
         faults.setNode = [](auto& inner, auto& path, auto& node) {
             if (path.getPath().size() == 1)
                 inner.getNode(path);
             inner.setNode(path, node);
         };
     }},
    {"StaleNodeIsNotReplaced",  // what it writes itself counts as reading everything
     [](Faults& faults) {
         const auto hasWritten = std::make_shared<bool>(false);
         faults.setNode = [hasWritten](auto& inner, auto& path, auto& node) {
             if (*hasWritten && path.getPath().size() == 1)
                 inner.getNode(path);
             inner.setNode(path, node);
             *hasWritten = true;
         };
     }},
    {"ReadingIsNotBehindItsBeginning",  // takes what it has read before for what is there when the reading begins
     [](Faults& faults) {
         const auto known = std::make_shared<std::map<MetadataPath, std::unique_ptr<MetadataNode>>>();
         faults.getNode = [known, readings = faults.readings](auto& inner, auto& path) {
             auto& node = (*known)[path];
             if (*readings == 0 || !node)
                 node = inner.getNode(path);
             return node ? std::make_unique<MetadataNodeSpecification>(*node) : nullptr;
         };
     }},
    {"WholeContentIsOneChange",  // reads what it replaces when it replaces it
     [](Faults& faults) {
         const auto aside = std::make_shared<Nodes>();
         faults.setNodes = [aside, contents = faults.contents](auto& inner, auto& nodes) {
             if (*contents > 0)
                 *aside = nodes;
             else
                 inner.setNodes(nodes);
         };
         faults.setPaths = [aside](auto& inner, auto& paths) {
             for (const auto& [path, node] : *aside)
                 inner.getNode(path);
             inner.setNodes(*aside);
             aside->clear();
             inner.setPaths(paths);
         };
     }},
    {"SimultaneousChangesAllStay",  // its lock does not hold for other processes
     [](Faults& faults) {
         faults.setNode = [](auto& inner, auto& path, auto& node) {
             static std::mutex mutex;
             const std::lock_guard lock(mutex);
             const bool isNumbered = path.string().find_first_of(u"0123456789") != std::u16string::npos;
             if (isNumbered && path.getPath().size() == 1 && node.get(u"Value") == u"1") {
                 Paths all = inner.getChildren({});
                 std::this_thread::sleep_for(std::chrono::milliseconds(5));
                 all.push_back(path);
                 inner.setPaths(all);
             }
             inner.setNode(path, node);
         };
     }},
    {"UsesTheFolderInUse",  // writes into one only
     [](Faults& faults) {
         const ProjectMetadataLocation location(faults.root);
         if (location.hasCoreFile() && location.getDirectory().fileName() != host::Path(u"project")) {
             faults.setNode = [coreFile = location.getCoreFile()](auto& inner, auto& path, auto& node) {
                 if (!host::FileSystem::exists(coreFile))
                     inner.setNode(path, node);
             };
         }
     }},
    {"ConvertedProjectIsNotOverwritten",
     [](Faults& faults) {
         const ProjectMetadataLocation location(faults.root);
         faults.addPath = [location](auto& inner, auto& path) {
             if (location.hasCoreFile() && location.getMetadataType() != u"monolithic")
                 std::ofstream(location.getCoreFile().accessName()) << "overwritten";
             else
                 inner.addPath(path);
         };
     }},
    {"HidesNoOtherMetadata",  // looks for others when it is opened, and no more
     [](Faults& faults) {
         const host::Path coreFile = ProjectMetadataLocation(faults.root).getCoreFile();
         faults.addPath = [coreFile](auto& inner, auto& path) {
             try {
                 inner.addPath(path);
             } catch (const project::metadata::MetadataWriteFailure&) {
                 if (host::FileSystem::exists(coreFile))
                     throw;
                 host::FileSystem::create_directories(coreFile.parentPath());
                 std::ofstream(coreFile.accessName()) << "<Project MetadataType='monolithic'/>";
             }
         };
     }},
    {"SetNodesSetsEveryNode",  // crashes on an entry without a node
     [](Faults& faults) {
         faults.setNodes = [](auto& inner, const Nodes& nodes) {
             for (const auto& entry : nodes) {
                 if (!entry.second)
                     std::raise(SIGSEGV);
             }
             inner.setNodes(nodes);
         };
     }},
    {"AnnouncesItsChanges",  // not all files
     [](Faults& faults) {
         const ProjectMetadataLocation location(faults.root);
         faults.setNode = [location](auto& inner, auto& path, auto& node) {
             inner.setNode(path, node);
             if (path.getPath().size() == 2 && node.get(u"Value") == u"2")
                 std::ofstream((location.getDirectory() / u"Index").accessName()) << "more";
         };
     }},
    {"StaleNodeIsNotRemoved",
     [](Faults& faults) {
         faults.removePath = [](auto& inner, auto& path) {
             inner.hasNode(path);
             inner.removePath(path);
         };
     }},
    {"RemovedNodeDoesNotComeBack",  // not below it
     [](Faults& faults) {
         faults.setNode = [](auto& inner, auto& path, auto& node) {
             if (path.getPath().size() == 3)
                 inner.hasNode(path.getParent());
             inner.setNode(path, node);
         };
     }},
    {"AnnouncesItsChanges",  // in two parts
     [](Faults& faults) {
         faults.setNode = [](auto& inner, auto& path, auto& node) {
             inner.addPath(path);
             inner.setNode(path, node);
         };
     }},
    {"SubscribersCanStopAChange",
     [](Faults& faults) {
         faults.setPaths = [](auto& inner, auto& paths) {
             try {
                 inner.setPaths(paths);
             } catch (const host::UserException&) {
                 throw;
             } catch (...) {
             }
         };
     }},
};

class BrokenStoreTest : public testing::TestWithParam<BrokenKind> {};

TEST_P(BrokenStoreTest, FailsItsRuleOnly) {
    const auto factory = std::make_shared<BrokenFactory>(GetParam().breakIt);
    std::string broken;
    for (const auto& rule : project::store_testing::getRules()) {
        if (const auto breach = project::store_testing::findBreach(rule, [&] { return factory; })) {
            broken += (broken.empty() ? "" : " ") + std::string(rule.name);
            EXPECT_NE(breach->find(", found "), std::string::npos) << *breach;
            if (GetParam().rule != rule.name)
                ADD_FAILURE() << *breach;
        }
    }
    EXPECT_EQ(broken, GetParam().rule);
}

INSTANTIATE_TEST_SUITE_P(Faults, BrokenStoreTest, testing::ValuesIn(brokenKinds), [](const auto& kind) {
    return std::to_string(kind.index) + (kind.param.rule.empty() ? "None" : kind.param.rule);
});

TEST(HangingStoreTest, BreaksOneRuleAndTheNextIsChecked) {
    const auto factory = std::make_shared<BrokenFactory>([](Faults& faults) {
        faults.removePath = [](auto& /*inner*/, auto& /*path*/) {
            for (;;)
                pause();
        };
    });
    const auto find = [&](const char* rule, std::chrono::milliseconds limit) {
        return project::store_testing::findBreach(
                   *project::store_testing::findRule(rule), [&] { return factory; }, limit)
            .value_or("none");
    };
    EXPECT_EQ(find("RemovePathRemovesAllBelow", std::chrono::seconds(1)),
              "expected the check to come to its end, found it still running after 1 seconds");
    EXPECT_EQ(find("RemoveNodeKeepsThePath", project::store_testing::checkLimit), "none");
    EXPECT_EQ(project::store_testing::findRule("RemoveNode"), nullptr);
}

}  // namespace
