#include "operations/History.hpp"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <utility>

#include "host/FileSystem.hpp"
#include "host/TempDirGuard.hpp"
#include "operations/Errors.hpp"
#include "operations/Git.hpp"
#include "operations/MetadataTree.hpp"
#include "operations/NodeEdit.hpp"
#include "operations/Project.hpp"
#include "operations/StoreChange.hpp"
#include "operations/TreeWalk.hpp"
#include "project/exception/ProjectException.hpp"
#include "project/metadata/MetadataRoots.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"

namespace operations {

namespace fs = std::filesystem;

namespace {

/// The repository that a project is in.
class Repository {
public:
    explicit Repository(const host::Path& root) : folder_(root.accessName()) {
        const GitOutcome prefix = runGit(folder_, {"rev-parse", "--show-prefix"});
        if (prefix.status != 0) {
            throw OperationError(ErrorKind::failure,
                                 "The project " + quoted(root) + " is in no git repository: " + prefix.error);
        }
        prefix_ = prefix.out.substr(0, prefix.out.size() - 1);
        for (const std::u16string& name : pm::getSupportedRoots())
            places_.push_back(":(top,literal)" + prefix_ + host::toUtf8(name));
    }

    /// What git prints. The arguments are followed by the places where metadata can be.
    std::string ask(std::vector<std::string> arguments) const {
        arguments.emplace_back("--");
        arguments.insert(arguments.end(), places_.begin(), places_.end());
        return askAlone(std::move(arguments), "/dev/null");
    }

    std::string askAlone(std::vector<std::string> arguments, const std::string& input) const {
        const std::string command = arguments.front();
        GitOutcome outcome = runGit(folder_, std::move(arguments), input);
        if (outcome.status != 0)
            throw OperationError(ErrorKind::failure, "git " + command + " has failed: " + outcome.error);
        return std::move(outcome.out);
    }

    /// The project's root folder, relative to that of the repository; empty, or with "/" at its end.
    const std::string& prefix() const { return prefix_; }

private:
    std::string folder_;
    std::string prefix_;
    std::vector<std::string> places_;
};

/// The fields of `text`, each of which ends with NUL.
std::vector<std::string> splitFields(const std::string& text) {
    std::vector<std::string> fields;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\0', begin), text.size());
        fields.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return fields;
}

std::vector<Revision> listRevisions(const Repository& repository) {
    const std::vector<std::string> fields = splitFields(repository.ask(
        {"log", "-z", "--topo-order", "--full-history", "--format=%H%x00%P%x00%an%x00%ae%x00%aI%x00%s"}));
    std::vector<Revision> revisions;
    for (std::size_t i = 0; i + 6 <= fields.size(); i += 6) {
        Revision revision{fields[i], {}, fields[i + 2], fields[i + 3], fields[i + 4], fields[i + 5]};
        std::istringstream parents(fields[i + 1]);
        for (std::string parent; parents >> parent;)
            revision.parents.push_back(parent);
        revisions.push_back(std::move(revision));
    }
    return revisions;
}

/// A scratch folder that holds the files of metadata of one commit after the other.
class Checkout {
public:
    Checkout(const Repository& repository, Observer& observer)
        : repository_(repository), guard_(host::FileSystem::temp_directory_name().text(), u"project-metadata-", u"") {
        observer.useScratchFolder(host::Path(guard_.getDirectoryName()));
        emptyTree_ = repository_.askAlone({"hash-object", "-t", "tree", "--stdin"}, "/dev/null");
        emptyTree_.pop_back();
        current_ = emptyTree_;
    }

    host::Path root() const { return host::Path(guard_.getDirectoryName()) / u"project"; }

    /// @param commit empty for a folder without metadata
    void goTo(const std::string& commit) {
        const std::string wanted = commit.empty() ? emptyTree_ : commit;
        // What is written while metadata is read is of no interest.
        const std::vector<std::string> fields =
            splitFields(repository_.ask({"diff-tree", "-r", "-z", "--raw", "--no-renames", current_, wanted}));
        std::vector<std::pair<std::string, fs::path>> blobs;
        for (std::size_t i = 0; i + 2 <= fields.size(); i += 2) {
            // :100644 100644 OLD NEW M
            std::istringstream words(fields[i]);
            std::string oldMode, mode, oldBlob, blob;
            words >> oldMode >> mode >> oldBlob >> blob;
            const std::optional<fs::path> file = placeOf(fields[i + 1]);
            if (!file)
                continue;
            std::error_code error;
            fs::remove(*file, error);
            if (mode == "100644" || mode == "100755")
                blobs.emplace_back(blob, *file);
        }
        write(blobs);
        current_ = wanted;
    }

private:
    /// Where the file `name` of the repository goes; no value for a name that leads elsewhere.
    std::optional<fs::path> placeOf(const std::string& name) const {
        const fs::path relative = name.substr(repository_.prefix().size());
        const auto isHarmless = [](const fs::path& part) { return part != ".." && part != "." && !part.empty(); };
        if (relative.is_absolute() || !std::all_of(relative.begin(), relative.end(), isHarmless))
            return std::nullopt;
        return fs::path(root().accessName()) / relative;
    }

    void write(const std::vector<std::pair<std::string, fs::path>>& blobs) const {
        if (blobs.empty())
            return;
        const fs::path list = fs::path(root().accessName()).parent_path() / "blobs";
        {
            std::ofstream names(list, std::ios::binary);
            for (const auto& [blob, file] : blobs)
                names << blob << '\n';
        }
        // NAME blob SIZE, a line break, the content, a line break
        const std::string contents = repository_.askAlone({"cat-file", "--batch"}, list);
        std::size_t at = 0;
        for (const auto& [blob, file] : blobs) {
            const std::size_t end = contents.find('\n', at);
            std::istringstream header(contents.substr(at, end - at));
            std::string name, kind;
            std::size_t size = 0;
            header >> name >> kind >> size;
            if (end == std::string::npos || kind != "blob" || size > contents.size() - end - 1)
                throw OperationError(ErrorKind::failure, "The repository lacks the content of \"" + blob + '"');
            fs::create_directories(file.parent_path());
            std::ofstream stream(file, std::ios::binary);
            stream.write(contents.data() + end + 1, static_cast<std::streamsize>(size));
            stream.close();
            if (!stream)
                throw OperationError(ErrorKind::failure, "The file \"" + file.native() + "\" cannot be written");
            at = end + 1 + size + 1;
        }
    }

    const Repository& repository_;
    host::TempDirGuard guard_;
    std::string emptyTree_;
    std::string current_;
};

using TreePtr = std::shared_ptr<const MetadataTree>;

/// What `request` asks for, as one commit after the other has it.
class Snapshots {
public:
    Snapshots(const Repository& repository, const HistoryRequest& request, Observer& observer)
        : request_(request), checkout_(repository, observer) {}

    /// @param commit empty for the time before the first one
    /// @return null if it cannot be read
    TreePtr read(const std::string& commit, Progress& progress) {
        const auto known = trees_.find(commit);
        if (known != trees_.end())
            return known->second;
        checkout_.goTo(commit);
        TreePtr tree;
        try {
            tree = std::make_shared<MetadataTree>(MetadataTree{TreeForm::project, readPath(progress)});
        } catch (const project::exception::ProjectException&) {
            // A state that some commit has left is damaged: nothing is known of it.
        } catch (const OperationError&) {
        }
        trees_.emplace(commit, tree);
        return tree;
    }

private:
    PathTree readPath(Progress& progress) const {
        const host::Path root = checkout_.root();
        if (!fs::exists(root.accessName()) || !pm::ProjectMetadataLocation(root).hasCoreFile())
            return {};
        const auto store = openProject(root);
        if (!store->hasPath(request_.path))
            return {};
        if (request_.below)
            return readSubtree(*store, request_.path, progress);
        PathTree tree;
        PathTree* at = &tree;
        for (const pm::PathElement& step : request_.path.getPath()) {
            at = &at->children.emplace_back();
            at->step = step;
        }
        at->node = store->getNode(request_.path);
        return tree;
    }

    const HistoryRequest& request_;
    Checkout checkout_;
    std::map<std::string, TreePtr> trees_;  // by commit
};

/// Whether the attribute `key` of the path's node is different.
bool concerns(const PathDiff& diff, const std::u16string& key) {
    if (!diff.node)
        return false;
    const NodeDiff& node = *diff.node;
    if (!node.before || !node.after)
        return findAttribute(node.before, key) || findAttribute(node.after, key);
    return std::any_of(node.attributes.begin(), node.attributes.end(),
                       [&](const AttributeDiff& attribute) { return attribute.key == key; });
}

std::vector<PathDiff> compare(const MetadataTree& before, const MetadataTree& after, const HistoryRequest& request) {
    std::vector<PathDiff> diffs = diffTrees(before, after);
    const auto isElsewhere = [&](const PathDiff& diff) {
        return !isAtOrBelow(diff.path, request.path) || (request.key && !concerns(diff, *request.key));
    };
    diffs.erase(std::remove_if(diffs.begin(), diffs.end(), isElsewhere), diffs.end());
    return diffs;
}

/// Leaves those of `diffs` whose paths are in `others` as well.
void keepCommon(std::vector<PathDiff>& diffs, const std::vector<PathDiff>& others) {
    PathSet paths;
    for (const PathDiff& other : others)
        paths.insert(other.path);
    const auto isElsewhere = [&](const PathDiff& diff) { return paths.count(diff.path) == 0; };
    diffs.erase(std::remove_if(diffs.begin(), diffs.end(), isElsewhere), diffs.end());
}

}  // namespace

std::vector<Revision> walkHistory(const host::Path& root, const HistoryRequest& request,
                                  const std::function<bool(const Revision&, const std::vector<PathDiff>&)>& visit,
                                  Observer& observer) {
    requireRoot(root);
    const Repository repository(root);
    Snapshots snapshots(repository, request, observer);
    std::vector<Revision> unreadable;
    for (const Revision& revision : listRevisions(repository)) {
        auto progress = observer.start("Reading " + revision.commit.substr(0, 10));
        const TreePtr after = snapshots.read(revision.commit, *progress);
        if (!after) {
            unreadable.push_back(revision);
            continue;
        }
        std::vector<std::string> parents = revision.parents;
        if (parents.empty())
            parents.emplace_back();
        std::vector<TreePtr> before;
        before.reserve(parents.size());
        for (const std::string& parent : parents)
            before.push_back(snapshots.read(parent, *progress));
        progress.reset();
        if (std::find(before.begin(), before.end(), nullptr) != before.end())
            continue;  // the one before is named, too
        std::vector<PathDiff> diffs = compare(*before.front(), *after, request);
        for (auto other = before.begin() + 1; other != before.end(); ++other)
            keepCommon(diffs, compare(**other, *after, request));
        if (!diffs.empty() && !visit(revision, diffs))
            break;
    }
    return unreadable;
}

}  // namespace operations
