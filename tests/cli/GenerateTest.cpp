/// The installed manual page and completions: whether the programs that read them can, and find every command.
#include <regex>
#include <sstream>

#include "tests/cli/ProjectFixture.hpp"

namespace {

namespace fs = std::filesystem;
using test::Outcome;
using test::runProgram;
using testing::HasSubstr;
using testing::Not;

const fs::path share = fs::path(CLI_TEST_PREFIX) / "share";

/// The commands that --help lists.
std::vector<std::string> findCommands() {
    std::vector<std::string> commands;
    std::istringstream help(test::run({"--help"}).out);
    bool isList = false;
    for (std::string line; std::getline(help, line);) {
        isList = isList || line == "Look:";
        if (isList && line.compare(0, 2, "  ") == 0 && line[2] != ' ')
            commands.push_back(line.substr(2, line.find(' ', 2) - 2));
    }
    return commands;
}

/// What bash offers at the end of `line`, without the help of the command.
std::string complete(const std::string& line) {
    const std::string script = "source " + (share / "bash-completion/completions/project-metadata").string() +
                               "; compopt() { :; }; PATH=; COMP_LINE='project-metadata " + line +
                               "'; COMP_POINT=${#COMP_LINE}; _project_metadata; echo \"${COMPREPLY[*]}\"";
    const Outcome outcome = runProgram("/bin/bash", {"-c", script});
    EXPECT_EQ(outcome.err, "");
    return outcome.out;
}

TEST(GenerateTest, manualPageTellsOfEveryCommandWithoutWarnings) {
    const Outcome page =
        runProgram("/usr/bin/groff", {"-man", "-Tascii", "-ww", share / "man/man1/project-metadata.1"});
    EXPECT_EQ(page.status, 0);
    EXPECT_EQ(page.err, "");
    const std::vector<std::string> commands = findCommands();
    ASSERT_GT(commands.size(), 5U);
    const std::string source = test::readBytes(share / "man/man1/project-metadata.1");
    for (const std::string& command : commands)
        EXPECT_THAT(source, HasSubstr("\n\\fB" + std::regex_replace(command, std::regex("-"), "\\-") + "\\fR"));
    EXPECT_THAT(source, HasSubstr("\n.SH NAME\nproject\\-metadata \\- "));
}

TEST(GenerateTest, bashOffersCommandsOptionsAndValues) {
    for (const std::string& command : findCommands()) {
        EXPECT_EQ(complete(command), complete("-q --color never " + command));
        EXPECT_THAT(' ' + complete(""), HasSubstr(' ' + command));
    }
    EXPECT_THAT(complete("-"), Not(HasSubstr("--output")));
    EXPECT_EQ(complete("report --o"), "--output\n");
    EXPECT_EQ(complete("report --col"), "--color\n");
    EXPECT_EQ(complete("report --color a"), "auto always\n");
    EXPECT_EQ(complete("--color=n"), "never\n");
    EXPECT_EQ(complete("report some/fi"), "\n");
    EXPECT_EQ(complete("gen"), "\n");
}

}  // namespace
