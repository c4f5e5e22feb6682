/// Stores in memory, their factories, and a service framework to register these in.
#pragma once

#include <chrono>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/FrameworkFactory.h>

#include "host/ServiceFramework.hpp"
#include "project/metadata/MetadataManagerFactory.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"

namespace test {

/// The path of steps of the type "t".
inline project::metadata::MetadataPath path(std::initializer_list<std::u16string> locations) {
    project::metadata::MetadataPathBuilder builder;
    for (const std::u16string& location : locations)
        builder.add(u"t", location);
    return builder.build();
}

/// Told of every call, as the operation's name and the path's text; may throw to make the call fail.
using Journal = std::function<void(const std::u16string& call)>;

/// A store that can be read as it was built and takes what is copied into it. It has no editing operations.
class MemoryStore : public project::metadata::MetadataManager {
    using Path = project::metadata::MetadataPath;
    using Node = project::metadata::MetadataNode;

public:
    /// What there is at a path: a node of that name, unless it is empty, and the children.
    struct Entry {
        Path path;
        std::u16string node;
        std::vector<Path> children;
    };

    explicit MemoryStore(Journal journal, std::vector<Entry> entries = {})
        : journal_(std::move(journal)), entries_(std::move(entries)) {}
    ~MemoryStore() override { journal_(u"destroyed"); }

    std::unique_ptr<Node> getNode(const Path& path) const override {
        journal_(u"getNode " + path.string());
        auto node = std::make_unique<project::metadata::MetadataNodeSpecification>(at(path).node);
        given.push_back(node.get());
        return node;
    }

    bool hasNode(const Path& path) const override {
        journal_(u"hasNode " + path.string());
        return !at(path).node.empty();
    }

    std::vector<Path> getChildren(const Path& path) const override {
        journal_(u"getChildren " + path.string());
        return at(path).children;
    }

    void setNodes(const std::map<Path, std::shared_ptr<Node>>& newNodes) override {
        journal_(u"setNodes");
        nodes = newNodes;
    }

    void setPaths(const std::vector<Path>& newPaths) override {
        journal_(u"setPaths");
        paths = newPaths;
    }

    void setNode(const Path& /*path*/, const Node& /*node*/) override { refuse(); }
    void removeNode(const Path& /*path*/) override { refuse(); }
    void addPath(const Path& /*path*/) override { refuse(); }
    void removePath(const Path& /*path*/) override { refuse(); }
    void removePaths(const std::vector<Path>& /*paths*/) override { refuse(); }
    bool hasPath(const Path& /*path*/) const override { refuse(); }

    mutable std::vector<const Node*> given;       ///< the nodes that were read, in that order
    std::map<Path, std::shared_ptr<Node>> nodes;  ///< what the last `setNodes` brought
    std::vector<Path> paths;                      ///< what the last `setPaths` brought

private:
    [[noreturn]] static void refuse() { throw std::logic_error("not an operation for copying"); }

    const Entry& at(const Path& path) const {
        static const Entry nothing{};
        for (const Entry& entry : entries_) {
            if (entry.path == path)
                return entry;
        }
        return nothing;
    }

    Journal journal_;
    std::vector<Entry> entries_;
};

/// A factory that does what it is told to.
struct MemoryFactory : project::metadata::MetadataManagerFactory {
    using Create = std::function<std::unique_ptr<project::metadata::MetadataManager>(const host::Path&)>;

    explicit MemoryFactory(std::u16string factoryName, bool isHiddenFactory = false)
        : name(std::move(factoryName)), hidden(isHiddenFactory) {}

    std::unique_ptr<project::metadata::MetadataManager> createManager(const host::Path& root) override {
        return create(root);
    }
    bool canManage(const host::Path& root) override { return manages(root); }
    std::u16string getName() override { return name; }
    std::u16string getDescription() override { return u"in memory"; }
    bool isHidden() const override { return hidden; }

    std::u16string name;
    bool hidden;
    Create create = [](const host::Path&) { return nullptr; };
    std::function<bool(const host::Path&)> manages = [](const host::Path&) { return false; };
};

/// A service framework that is the one of the process for as long as it lives.
class RunningFramework {
public:
    using Registration = cppmicroservices::ServiceRegistration<project::metadata::MetadataManagerFactory>;

    RunningFramework() {
        framework_->Start();
        host::ServiceFramework::setFramework(framework_);
    }

    ~RunningFramework() {
        host::ServiceFramework::setFramework(nullptr);
        stop();
    }

    RunningFramework(const RunningFramework&) = delete;
    RunningFramework& operator=(const RunningFramework&) = delete;

    void stop() {
        framework_->Stop();
        framework_->WaitForStop(std::chrono::milliseconds::zero());
    }

    Registration add(std::shared_ptr<project::metadata::MetadataManagerFactory> factory) {
        return context().RegisterService<project::metadata::MetadataManagerFactory>(std::move(factory));
    }

    cppmicroservices::BundleContext context() const { return framework_->GetBundleContext(); }

private:
    std::shared_ptr<cppmicroservices::Framework> framework_ =
        std::make_shared<cppmicroservices::Framework>(cppmicroservices::FrameworkFactory().NewFramework());
};

/// A variable of the environment that is set for as long as it lives.
class EnvironmentVariable {
public:
    EnvironmentVariable(std::string name, const std::string& value) : name_(std::move(name)) {
        setenv(name_.c_str(), value.c_str(), 1);
    }
    ~EnvironmentVariable() { unsetenv(name_.c_str()); }

    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

private:
    std::string name_;
};

}  // namespace test
