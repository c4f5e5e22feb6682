/// A project in each kind of store, and its content as lines.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "project/metadata/FactoryRegistry.hpp"
#include "tests/cli/ProjectFixture.hpp"
#include "tests/cli/StoreContent.hpp"

namespace test {

class StoreFixture : public ProjectFixture, public testing::WithParamInterface<const char*> {
protected:
    StoreFixture() { init(GetParam()); }

    void succeed(const std::string& command, std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {command, "-q", "-C", root});
        expectSuccess(run(arguments), "");
    }

    /// Every path with its node, level by level; in a text, a path's steps that hold separators look like others.
    std::vector<std::string> content() const {
        std::vector<std::string> lines;
        for (const auto& stored : readContent(*openStore()))
            lines.push_back(host::toUtf8(stored.path.string()) + (stored.node.empty() ? "" : " " + stored.node));
        return lines;
    }

    std::unique_ptr<project::metadata::MetadataManager> openStore() const {
        return project::metadata::getMetadataManagerFor(toPath(root));
    }
};

}  // namespace test
