/// project-metadata report: a project's metadata as one self-contained HTML page.
///
/// The page lies in cli/report/; this file gives it the data, as JSON inside a <script type="application/json">. All
/// texts in it are safe to show already, so that the page need not know what is not.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "cli/Arguments.hpp"
#include "cli/Command.hpp"
#include "cli/Positionals.hpp"
#include "cli/TreeWalk.hpp"
#include "cli/report/ReportPage.hpp"
#include "cli/text/Errors.hpp"
#include "cli/text/Output.hpp"
#include "cli/text/PathText.hpp"
#include "cli/text/Progress.hpp"
#include "cli/text/SafeText.hpp"
#include "cli/text/Warnings.hpp"
#include "host/FileUtils.hpp"
#include "host/Interruption.hpp"
#include "operations/FolderScan.hpp"
#include "operations/Project.hpp"

namespace cli {

namespace {

namespace pm = project::metadata;

/// A file that appears under its name when it is complete. Until then it is written beside, and gone if that fails.
class CompleteFile {
public:
    explicit CompleteFile(const host::Path& target)
        : target_(target.accessName()), scratch_(target_ + ".XXXXXX"), mask_(umask(0)) {
        umask(mask_);
        const int descriptor = mkostemp(scratch_.data(), O_CLOEXEC);
        file_ = descriptor < 0 ? nullptr : fdopen(descriptor, "w");
        if (!file_)
            fail();
    }

    ~CompleteFile() {
        if (file_)
            std::fclose(file_);
        if (!scratch_.empty())
            unlink(scratch_.c_str());
    }

    CompleteFile(const CompleteFile&) = delete;
    CompleteFile& operator=(const CompleteFile&) = delete;

    void write(std::string_view text) {
        size_ += text.size();
        if (std::fwrite(text.data(), 1, text.size(), file_) < text.size())
            fail();
    }

    /// Gives the file its name, in place of another one only if `replace`.
    void complete(bool replace) {
        const int descriptor = fileno(file_);
        if (std::fflush(file_) != 0 || fchmod(descriptor, 0666 & ~mask_) != 0 || fsync(descriptor) != 0)
            fail();
        // Unlike rename, link leaves a file alone that somebody else has made meanwhile.
        const bool isDone = replace ? std::rename(scratch_.c_str(), target_.c_str()) == 0
                                    : link(scratch_.c_str(), target_.c_str()) == 0;
        if (!isDone)
            fail();
        if (replace)
            scratch_.clear();
    }

    std::uint64_t size() const { return size_; }

private:
    [[noreturn]] void fail() const {
        throw CommandError(Status::failure, "The report \"" + target_ +
                                                "\" cannot be written: " + std::generic_category().message(errno));
    }

    std::string target_;
    std::string scratch_;
    mode_t mask_;
    std::FILE* file_ = nullptr;
    std::uint64_t size_ = 0;
};

/// `text`, which is safe to show, as a JSON text that may stand in a <script>.
std::string quoteJson(std::string_view text) {
    std::string json = "\"";
    for (const char byte : text) {
        if (byte == '<')
            json += "\\u003C";
        else if (byte == '"' || byte == '\\')
            json.append({'\\', byte});
        else
            json += byte;
    }
    return json += '"';
}

/// Names that stand in the data as their numbers, because they come again and again.
class Names {
public:
    /// @param name safe to show
    std::string numberOf(const std::string& name) {
        const auto [place, isNew] = numbers_.try_emplace(name, list_.size());
        if (isNew)
            list_.push_back(quoteJson(name));
        return std::to_string(place->second);
    }

    const std::vector<std::string>& list() const { return list_; }

private:
    std::map<std::string, std::size_t> numbers_;
    std::vector<std::string> list_;
};

std::string join(const std::vector<std::string>& parts) {
    std::string text;
    for (const std::string& part : parts)
        text += (text.empty() ? "" : ",") + part;
    return '[' + text + ']';
}

/// [number of the name, [number of a key, "value", ...], [child node, ...]]
std::string formatNode(const pm::MetadataNode& node, Names& names) {
    std::vector<std::string> attributes;
    for (const std::u16string& key : node.getAttributeKeys()) {
        attributes.push_back(names.numberOf(escapeName(key)));
        attributes.push_back(quoteJson(escapeText(node.get(key))));
    }
    std::vector<std::string> children;
    for (const auto& child : node.getChildNodes())
        children.push_back(formatNode(*child, names));
    return join({names.numberOf(escapeName(node.getName())), join(attributes), join(children)});
}

/// Writes every path, each after its parent, as [depth, number of the type, "location", node or 0]. Type and location
/// are as they stand in the text of a path.
void writePaths(const pm::MetadataManager& store, Names& names, CompleteFile& file) {
    Progress progress("Reporting");
    const pm::PathElement nothing(u"", u"");
    // What is damaged stands in the page, if the store can tell.
    const bool isTold = dynamic_cast<const pm::DamageReporter*>(&store) != nullptr;
    for (TreeWalk walk(store, {}, TreeWalk::anyDepth, !isTold); walk.next(); progress.advance()) {
        const bool isRoot = walk.depth() == 0;
        const pm::PathElement& element = isRoot ? nothing : walk.path().getPath().back();
        const std::string step = formatElement(element);
        const std::string typeAndColon = formatElement(pm::PathElement(element.getType(), u""));
        const auto node = walk.readNode();
        file.write((isRoot ? "" : ",\n") +
                   join({std::to_string(walk.depth()), names.numberOf(typeAndColon.substr(0, typeAndColon.size() - 1)),
                         quoteJson(step.substr(typeAndColon.size())), node ? formatNode(*node, names) : "0"}));
    }
}

/// @return how many files are damaged
std::size_t writeData(const host::Path& root, const pm::MetadataManager& store, CompleteFile& file) {
    const host::Path absoluteRoot = host::FileUtils::normalize(host::FileUtils::makeAbsolute(root));
    const std::string time = escapeText(operations::formatTime({std::time(nullptr), 0}));
    file.write("{\"project\":" + quoteJson(escapeName(absoluteRoot.fileName().text())) + ",\"time\":\"" + time +
               "\",\"paths\":[\n");
    Names names;
    writePaths(store, names, file);
    file.write("],\n\"names\":" + join(names.list()));

    const std::vector<pm::MetadataDamage> damages = operations::findDamage(store);
    std::vector<std::string> list;
    for (const pm::MetadataDamage& damage : damages) {
        const std::string problem = escapeText(operations::explainProblem(damage.file, damage.problem));
        list.push_back(join({quoteJson(escapeName(damage.file.text())), quoteJson(problem)}));
    }
    file.write(",\n\"damages\":" + join(list) + '}');
    const std::size_t count = keepDamage(damages);
    if (count > 0)
        takeWarnings();  // the page tells them
    return count;
}

/// The file that `name` leads to, symbolic links followed, if it may be written.
host::Path chooseTarget(const host::Path& name, bool replace) {
    struct stat status {};
    if (stat(name.accessName().c_str(), &status) != 0)
        return name;
    if (!S_ISREG(status.st_mode))
        throw CommandError(Status::failure, quoted(name) + " is no ordinary file, so the report cannot take its place");
    if (!replace) {
        throw CommandError(Status::failure,
                           "The file " + quoted(name) + " exists already and is left as it is; --force replaces it");
    }
    const std::unique_ptr<char, decltype(&std::free)> real(realpath(name.accessName().c_str(), nullptr), &std::free);
    return real ? host::Path::fromAccessName(real.get()) : name;
}

struct Wish {
    std::string file;
    bool force = false;
    std::shared_ptr<const bool> dryRun;
};

Status report(const host::Path& root, const Wish& wish) {
    const auto store = operations::openProject(root);
    const host::Path name = host::Path::fromAccessName(wish.file);
    const host::Path target = chooseTarget(name, wish.force);
    if (*wish.dryRun) {
        printNote("Would write " + escapeName(name.text()) + '\n');
        return Status::done;
    }
    CompleteFile file(target);
    file.write(reportPageBegin);
    const std::size_t damages = writeData(root, *store, file);
    file.write(reportPageEnd);
    file.complete(wish.force);
    host::Interruption::ignore();
    printNote(escapeName(name.text()) + ", " + formatSize(file.size()) + '\n');
    flushOutput();
    if (damages == 0)
        return Status::done;
    reportError("The report lacks what is damaged in the metadata of " + quoted(root) +
                ", and says so: " + formatCount(damages, "file"));
    return Status::foundProblems;
}

Command::Action configure(CLI::App& app) {
    const auto wish = std::make_shared<Wish>();
    const Positionals positionals(app);
    addOption(app, "-o,--output", wish->file, "The page to make", "FILE", Need::required);
    addFlag(app, "--force", wish->force, "Replace a file that exists");
    wish->dryRun = addDryRun(app);
    return [positionals, wish] { return report(positionals.get().root, *wish); };
}

const Command command(Group::show, "report", "Make a web page of a project's metadata, to look at and search",
                      configure);

}  // namespace

}  // namespace cli
