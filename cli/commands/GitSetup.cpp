/// project-metadata git-setup: makes git compare and merge files of metadata by path and attribute.
///
/// What is written: in the configuration of the repository the merge driver and the form in which files are compared
/// (gitattributes(5), "Defining a custom merge driver" and "Performing text diffs of binary files"), and a block in a
/// file of attributes that says which files they are for.

#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <fstream>
#include <iterator>
#include <system_error>

#include <boost/algorithm/string/replace.hpp>

#include "cli/Command.hpp"
#include "host/FileSystem.hpp"
#include "operations/DryRun.hpp"
#include "operations/FileOutput.hpp"
#include "operations/Git.hpp"
#include "operations/MetadataTree.hpp"
#include "operations/Project.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataRoots.hpp"

namespace cli {

namespace {

const std::string blockBegin = "# project-metadata: begin (written by \"project-metadata git-setup\")\n";
const std::string blockEnd = "# project-metadata: end\n";

/// This program, as the shell takes it, which git runs drivers with.
std::string findOwnCommand() {
    std::array<char, PATH_MAX> name{};
    const ssize_t length = readlink("/proc/self/exe", name.data(), name.size());
    if (length <= 0)
        throw std::system_error(errno, std::generic_category(), "The command cannot find its own file");
    const std::string file(name.data(), static_cast<std::size_t>(length));
    return '\'' + boost::algorithm::replace_all_copy(file, "'", "'\\''") + '\'';
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
    for (const std::u16string& folder : pm::getSupportedRoots()) {
        for (const std::u16string& pattern : listFilePatterns())
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

struct Arguments {
    std::string folder;
    bool inWorkTree = false;
    bool isRemoval = false;
    bool isDryRun = false;
    std::shared_ptr<const bool> isJson;
};

class Setup {
public:
    explicit Setup(const Arguments& arguments) : arguments_(arguments) {}

    /// The absolute path that "git rev-parse" tells for `arguments`.
    host::Path find(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"rev-parse", "--path-format=absolute"});
        const GitOutcome found = runGit(arguments_.folder, std::move(arguments));
        if (found.status != 0) {
            throw CommandError(Status::failure, '"' + arguments_.folder +
                                                    "\" is not in the work tree of a git repository: " + found.error);
        }
        return host::Path::fromAccessName(withoutBreak(found.out));
    }

    void configure() {
        configureRenames();
        for (const auto& [key, value] : makeConfiguration()) {
            const std::optional<std::string> before = readSetting(key);
            if (arguments_.isRemoval && before)
                change(key, std::nullopt);
            else if (!arguments_.isRemoval && before != value)
                change(key, value);
        }
        // What is empty now does not go by itself.
        if (arguments_.isRemoval && !arguments_.isDryRun) {
            for (const char* section : {"merge.project-metadata", "diff.project-metadata"})
                runGit(arguments_.folder, {"config", "--local", "--remove-section", section});
        }
    }

    void writeAttributes(const host::Path& file) {
        const std::string before = readAll(file);
        const std::string after = replaceBlock(before, arguments_.isRemoval ? "" : makeBlock());
        if (after == before)
            return;
        requireNoLink(file);
        if (!arguments_.isDryRun && after.empty()) {
            host::FileSystem::remove_all(file);
        } else if (!arguments_.isDryRun) {
            // In one step: others' lines in the file are not to be lost on a full disk.
            pm::makeFolder(pm::getParentFolder(file));
            replaceFile(file, after);
        }
        done_["attributes"] = toJson(file);
        note((arguments_.isRemoval ? "removed the attributes of metadata files from "
                                   : "put the attributes of metadata files into ") +
             file.accessName());
    }

    /// What has been done, or would be.
    const Json& done() const { return done_; }

private:
    /// Git would take a folder for renamed because of what is in its files, and put those of the other side there.
    void configureRenames() {
        const std::string key = "merge.directoryRenames";
        const std::string noteKey = "merge.project-metadata.directoryRenamesBefore";  // empty if it was not set
        const std::optional<std::string> now = readSetting(key);
        const std::optional<std::string> before = readSetting(noteKey);
        const bool isOff = now == "false";
        if (!arguments_.isRemoval && !isOff) {
            change(noteKey, now.value_or(""));
            change(key, "false");
        } else if (arguments_.isRemoval && before) {
            if (isOff)
                change(key, before->empty() ? std::nullopt : before);
            change(noteKey, std::nullopt);
        }
    }

    static std::string withoutBreak(std::string text) {
        if (!text.empty() && text.back() == '\n')
            text.pop_back();
        return text;
    }

    /// No value if it is not set.
    std::optional<std::string> readSetting(const std::string& key) const {
        const GitOutcome found = runGit(arguments_.folder, {"config", "--local", "--get", key});
        return found.status == 0 ? std::optional(withoutBreak(found.out)) : std::nullopt;
    }

    /// @param value what the key is to have; none to take it away
    void change(const std::string& key, const std::optional<std::string>& value) {
        if (!arguments_.isDryRun) {
            std::vector<std::string> arguments{"config", "--local", value ? "--replace-all" : "--unset-all", key};
            if (value)
                arguments.push_back(*value);
            const GitOutcome changed = runGit(arguments_.folder, std::move(arguments));
            if (changed.status != 0) {
                throw CommandError(Status::failure, "git cannot change the configuration of \"" + arguments_.folder +
                                                        "\": " + changed.error);
            }
        }
        done_["settings"][key] = value ? toJson(host::fromUtf8(*value)) : Json(nullptr);
        note(value ? "set " + key + " = " + *value : "removed " + key);
    }

    void note(const std::string& text) const {
        if (!*arguments_.isJson)
            printNote((arguments_.isDryRun ? "would have " : "") + escapeText(host::Path::fromAccessName(text).text()) +
                      '\n');
    }

    const Arguments& arguments_;
    Json done_{{"settings", Json::object()}, {"attributes", nullptr}};
};

Status setUp(const Arguments& arguments) {
    Setup setup(arguments);
    const host::Path attributes = arguments.inWorkTree ? setup.find({"--show-toplevel"}) / u".gitattributes"
                                                       : setup.find({"--git-path", "info/attributes"});
    if (arguments.isDryRun) {
        requireFeasibleFile(attributes);
        requireFeasibleFile(setup.find({"--git-path", "config"}));
    }
    setup.writeAttributes(attributes);
    setup.configure();
    if (*arguments.isJson)
        printJson(setup.done());
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const auto arguments = std::make_shared<Arguments>();
    const Operands operands(
        app, {{"FOLDER", "A folder of the repository; without, the current one", Positional::Kind::optional}}, 0);
    addFlag(app, "--shared", arguments->inWorkTree,
            "Name the files in .gitattributes, for everybody who clones the repository, and not in its own "
            "info/attributes");
    addFlag(app, "--remove", arguments->isRemoval,
            "Take away what this command has written; with --shared, from .gitattributes");
    addFlag(app, "--dry-run", arguments->isDryRun, "Say what would be written, and write nothing");
    arguments->isJson = addJson(app);
    return [operands, arguments] {
        arguments->folder = operands.get()[0].value_or(".");
        // For git, an empty text is the current folder.
        if (!leadsToFolder(arguments->folder))
            throw CommandError(Status::failure, '"' + arguments->folder + "\" is no folder");
        return setUp(*arguments);
    };
}

const Command command(Group::compare, "git-setup", "Let git compare and merge files of metadata", configure);

}  // namespace

}  // namespace cli
