/// Runs git.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace test {

/// Runs git with `arguments`, as a shell reads them, in `folder`, without any of the user's settings. It must succeed.
/// @return what it says
inline std::string runGit(const std::filesystem::path& folder, const std::string& arguments) {
    const std::string command =
        "env -u GIT_DIR -u GIT_WORK_TREE -u GIT_INDEX_FILE GIT_CONFIG_GLOBAL=/dev/null GIT_CONFIG_SYSTEM=/dev/null "
        "GIT_AUTHOR_NAME=a GIT_AUTHOR_EMAIL=a@b GIT_COMMITTER_NAME=a GIT_COMMITTER_EMAIL=a@b LC_ALL=C git -C '" +
        folder.string() + "' " + arguments + " 2>&1";
    FILE* const output = popen(command.c_str(), "r");
    if (!output)
        throw std::runtime_error("cannot run git");
    std::string text;
    std::array<char, 4096> buffer{};
    while (const auto count = fread(buffer.data(), 1, buffer.size(), output))
        text.append(buffer.data(), count);
    EXPECT_EQ(pclose(output), 0) << "git " << arguments << ": " << text;
    return text;
}

}  // namespace test
