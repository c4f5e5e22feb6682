/// A project in a scratch folder, and what the tests of the command ask about it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "tests/cli/RunCommand.hpp"
#include "tests/support/TempFolder.hpp"

namespace test {

/// A folder of files that a project describes.
inline const std::string sample = CLI_TEST_SAMPLE;

/// The bytes of every file below `folder`, by relative path; folders have a path that ends with "/".
inline std::map<std::string, std::string> readTree(const std::filesystem::path& folder) {
    std::map<std::string, std::string> tree;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        const std::string name = entry.path().lexically_relative(folder);
        if (entry.is_regular_file())
            tree[name] = readBytes(entry.path());
        else
            tree[name + '/'];
    }
    return tree;
}

/// One sentence on the standard error, possibly with causes indented below, that holds all of `parts`.
inline void expectFailure(const Outcome& outcome, int status, const std::vector<std::string>& parts) {
    EXPECT_EQ(outcome.status, status) << outcome.err;
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, testing::MatchesRegex("project-metadata: [^\n]+\n(    [^\n]+\n)*"));
    for (const std::string& part : parts)
        EXPECT_THAT(outcome.err, testing::HasSubstr(part));
}

inline void expectSuccess(const Outcome& outcome, const std::string& out) {
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, out);
    EXPECT_EQ(outcome.err, "");
}

/// How a test for a kind of store is called.
inline std::string nameOfStore(const testing::TestParamInfo<const char*>& store) {
    return store.param;
}

class ProjectFixture : public testing::Test {
protected:
    ProjectFixture() { std::filesystem::create_directories(root); }

    /// Gives the project metadata.
    void init(const std::string& store = "fixedPath") const {
        const Outcome outcome = run({"init", root, "--store", store});
        ASSERT_EQ(outcome.status, 0) << outcome.err;
    }

    TempFolder folder;
    const std::filesystem::path root = folder / "project";
    const std::filesystem::path coreFile = root / "resources/project/Project.xml";
};

}  // namespace test
