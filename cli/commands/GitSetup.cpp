/// project-metadata git-setup: makes git compare and merge files of metadata by path and attribute.
///
/// What is written: in the configuration of the repository the merge driver and the form in which files are compared
/// (gitattributes(5), "Defining a custom merge driver" and "Performing text diffs of binary files"), and a block in a
/// file of attributes that says which files they are for.

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "cli/Arguments.hpp"
#include "cli/Command.hpp"
#include "cli/text/Errors.hpp"
#include "cli/text/Output.hpp"
#include "cli/text/SafeText.hpp"
#include "host/FileSystem.hpp"
#include "host/Text.hpp"
#include "operations/FileOutput.hpp"
#include "operations/MetadataTree.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataRoots.hpp"

namespace cli {

namespace {

const std::string blockBegin = "# project-metadata: begin (written by \"project-metadata git-setup\")\n";
const std::string blockEnd = "# project-metadata: end\n";

struct GitOutcome {
    int status;
    std::string out;  // without the line break at its end
};

/// Runs git in `folder`. What it complains of goes to the standard error of this process.
GitOutcome runGit(const std::string& folder, std::vector<std::string> arguments, bool isSilent = false) {
    arguments.insert(arguments.begin(), {"git", "-C", folder});
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (std::string& argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0)
        throw std::system_error(errno, std::generic_category(), "git cannot be started");
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        if (isSilent)
            dup2(ends[1], STDERR_FILENO);
        close(ends[0]);
        close(ends[1]);
        execvp("git", argv.data());
        _exit(127);
    }
    close(ends[1]);
    GitOutcome outcome{-1, {}};
    std::array<char, 4096> buffer{};
    ssize_t count = 0;
    while ((count = read(ends[0], buffer.data(), buffer.size())) > 0 || (count < 0 && errno == EINTR))
        outcome.out.append(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    close(ends[0]);
    int status = 0;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (child < 0 || !WIFEXITED(status) || WEXITSTATUS(status) == 127)
        throw CommandError(Status::failure, "The program git cannot be started; is it installed?");
    outcome.status = WEXITSTATUS(status);
    if (!outcome.out.empty() && outcome.out.back() == '\n')
        outcome.out.pop_back();
    return outcome;
}

/// This program, as the shell takes it, which git runs drivers with.
std::string findOwnCommand() {
    std::array<char, PATH_MAX> name{};
    const ssize_t length = readlink("/proc/self/exe", name.data(), name.size());
    if (length <= 0)
        throw std::system_error(errno, std::generic_category(), "The command cannot find its own file");
    std::string command = "'";
    for (const char byte : std::string(name.data(), static_cast<std::size_t>(length)))
        command += byte == '\'' ? std::string("'\\''") : std::string{byte};
    return command + '\'';
}

/// Pairs of a key of git's configuration and its value.
std::vector<std::pair<std::string, std::string>> makeConfiguration() {
    const std::string command = findOwnCommand();
    // What is no metadata, and so an error for this program, is merged as git does it.
    const std::string otherwise =
        "; s=$?; test $s -ne 3 && exit $s; git merge-file --marker-size=%L -L ours -L base -L theirs %A %O %B";
    return {{"merge.project-metadata.name", "metadata by path and attribute"},
            {"merge.project-metadata.driver", command + " merge --label %P %O %A %B" + otherwise},
            {"diff.project-metadata.textconv", command + " textconv"}};
}

std::string makeBlock() {
    std::string block = blockBegin;
    for (const std::u16string& folder : project::metadata::getSupportedRoots()) {
        for (const std::u16string& pattern : operations::listFilePatterns())
            block += "**/" + host::toUtf8(folder + u'/' + pattern) + " merge=project-metadata diff=project-metadata\n";
    }
    return block + blockEnd;
}

std::string readAll(const host::Path& file) {
    std::ifstream stream(file.accessName(), std::ios::binary);
    if (!stream && host::FileSystem::exists(file))
        throw CommandError(Status::failure, "The file " + quoted(file) + " cannot be read");
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// `text` with `block` in place of the block that is in it.
std::string replaceBlock(std::string text, const std::string& block) {
    const std::size_t begin = text.find(blockBegin);
    const std::size_t end = begin == std::string::npos ? begin : text.find(blockEnd, begin);
    if (end != std::string::npos)
        return text.replace(begin, end + blockEnd.size() - begin, block);
    if (!text.empty() && text.back() != '\n' && !block.empty())
        text += '\n';
    return text + block;
}

/// Git reads no .gitattributes that is a link.
void requireNoLink(const host::Path& file) {
    std::array<char, 1> target{};
    if (readlink(file.accessName().c_str(), target.data(), target.size()) >= 0) {
        throw CommandError(Status::failure, quoted(file) +
                                                " is a symbolic link; replace it by a file, in which git-setup "
                                                "can put the attributes");
    }
}

class Setup {
public:
    Setup(std::string folder, bool isRemoval, bool isDryRun)
        : folder_(std::move(folder)), isRemoval_(isRemoval), isDryRun_(isDryRun) {}

    /// The absolute path that "git rev-parse" tells for `arguments`.
    host::Path find(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"rev-parse", "--path-format=absolute"});
        const GitOutcome found = runGit(folder_, std::move(arguments), true);
        if (found.status != 0) {
            throw CommandError(Status::failure,
                               '"' + folder_ + "\" is not in the work tree of a git repository: " + found.out);
        }
        return host::Path::fromAccessName(found.out);
    }

    void configure() const {
        configureRenames();
        for (const auto& [key, value] : makeConfiguration()) {
            const GitOutcome before = runGit(folder_, {"config", "--local", "--get", key});
            if (isRemoval_ && before.status == 0)
                change({"config", "--local", "--unset-all", key}, "removed " + key);
            else if (!isRemoval_ && (before.status != 0 || before.out != value))
                change({"config", "--local", "--replace-all", key, value}, "set " + key + " = " + value);
        }
        // What is empty now does not go by itself.
        if (isRemoval_ && !isDryRun_) {
            for (const char* section : {"merge.project-metadata", "diff.project-metadata"})
                runGit(folder_, {"config", "--local", "--remove-section", section}, true);
        }
    }

    void writeAttributes(const host::Path& file) const {
        const std::string before = readAll(file);
        const std::string after = replaceBlock(before, isRemoval_ ? "" : makeBlock());
        if (after == before)
            return;
        requireNoLink(file);
        if (!isDryRun_ && after.empty()) {
            host::FileSystem::remove_all(file);
        } else if (!isDryRun_) {
            // In one step: others' lines in the file are not to be lost on a full disk.
            project::metadata::makeFolder(project::metadata::getParentFolder(file));
            operations::replaceFile(file, after);
        }
        note((isRemoval_ ? "removed the attributes of metadata files from "
                         : "put the attributes of metadata files into ") +
             file.accessName());
    }

private:
    /// Git would take a folder for renamed because of what is in its files, and put those of the other side there.
    void configureRenames() const {
        const std::string key = "merge.directoryRenames";
        const std::string noteKey = "merge.project-metadata.directoryRenamesBefore";  // empty if it was not set
        const GitOutcome now = runGit(folder_, {"config", "--local", "--get", key});
        const GitOutcome before = runGit(folder_, {"config", "--local", "--get", noteKey});
        const bool isOff = now.status == 0 && now.out == "false";
        if (!isRemoval_ && !isOff) {
            change({"config", "--local", "--replace-all", noteKey, now.out}, "noted " + key + " = " + now.out);
            change({"config", "--local", "--replace-all", key, "false"}, "set " + key + " = false");
        } else if (isRemoval_ && before.status == 0) {
            if (isOff && before.out.empty())
                change({"config", "--local", "--unset-all", key}, "removed " + key);
            else if (isOff)
                change({"config", "--local", "--replace-all", key, before.out}, "set " + key + " = " + before.out);
            change({"config", "--local", "--unset-all", noteKey}, "removed " + noteKey);
        }
    }

    void change(std::vector<std::string> arguments, const std::string& text) const {
        if (!isDryRun_ && runGit(folder_, std::move(arguments)).status != 0)
            throw CommandError(Status::failure, "git cannot change the configuration of \"" + folder_ + '"');
        note(text);
    }

    void note(const std::string& text) const {
        printNote((isDryRun_ ? "would have " : "") + escapeText(host::Path::fromAccessName(text).text()) + '\n');
    }

    std::string folder_;
    bool isRemoval_;
    bool isDryRun_;
};

struct Arguments {
    std::string folder = ".";
    bool inWorkTree = false;
    bool isRemoval = false;
    bool isDryRun = false;
};

Status setUp(const Arguments& arguments) {
    const Setup setup(arguments.folder, arguments.isRemoval, arguments.isDryRun);
    const host::Path attributes = arguments.inWorkTree ? setup.find({"--show-toplevel"}) / u".gitattributes"
                                                       : setup.find({"--git-path", "info/attributes"});
    setup.writeAttributes(attributes);
    setup.configure();
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const auto arguments = std::make_shared<Arguments>();
    addArgument(app, "FOLDER", arguments->folder, "A folder of the repository; without, the current one");
    addFlag(app, "--attributes", arguments->inWorkTree,
            "Name the files in .gitattributes, for everybody who clones the repository, and not in its own "
            "info/attributes");
    addFlag(app, "--remove", arguments->isRemoval, "Take away what this command has written");
    addFlag(app, "--dry-run", arguments->isDryRun, "Say what would be written, and write nothing");
    return [arguments] { return setUp(*arguments); };
}

const Command command(Group::compare, "git-setup", "Let git compare and merge files of metadata", configure);

}  // namespace

}  // namespace cli
