#include "operations/Import.hpp"

#include <unistd.h>

#include <algorithm>
#include <memory>

#include "host/FileSystem.hpp"
#include "operations/DryRun.hpp"
#include "operations/Errors.hpp"
#include "operations/NewMetadata.hpp"
#include "operations/NodeAddress.hpp"
#include "operations/Project.hpp"
#include "operations/Restore.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"
#include "project/metadata/SingleFileExport.hpp"
#include "store_support/CoreFileType.hpp"

namespace operations {

namespace {

[[noreturn]] void refuse(const host::Path& file, const std::string& reason) {
    throw OperationError(ErrorKind::failure, quoted(file) + reason);
}

/// Why `file` is none that an export wrote.
[[noreturn]] void refuseType(const host::Path& file) {
    const std::u16string type = store_support::readMetadataType(file);
    if (type.empty())
        refuse(file, " is no exported metadata: it names no type of metadata");
    refuse(file, " holds no content: it belongs to metadata of type \"" + host::toUtf8(type) +
                     "\", which keeps that in other files; \"project-metadata export\" writes all into one");
}

PathTree readExported(const host::Path& file) {
    if (!host::FileSystem::exists(file))
        throw OperationError(ErrorKind::failure, "There is no file " + quoted(file));
    const auto format = std::dynamic_pointer_cast<const pm::MetadataFileFormat>(pm::getSingleFileFactory());
    std::optional<pm::FileContent> content;
    try {
        content = format ? format->readFile(file) : std::nullopt;
    } catch (const pm::MetadataReadFailure& error) {
        if (access(file.accessName().c_str(), R_OK) != 0 || !isFile(file.accessName()))
            throw;
        const auto& cause = std::get<std::u16string>(error.GetBaseMsgIDObj().arguments.at(1));
        refuse(file, " is damaged, so nothing is imported: " + host::toUtf8(explainProblem(file, cause)));
    }
    if (!content)
        refuseType(file);
    return std::move(content->tree);
}

/// The store that is to hold the content of the file. A new one writes nothing before its first change.
std::unique_ptr<pm::MetadataManager> openDestination(const host::Path& root, bool isNew, const ImportRequest& request) {
    if (isNew) {
        auto store = chooseStore(request.store)->createManager(root);
        setOptions(*store, request.options);
        return store;
    }
    if (request.store || request.folder || !request.options.empty()) {
        throw OperationError(ErrorKind::usage, "The project " + quoted(root) +
                                                   " has metadata already; --store, --option and --folder are for new "
                                                   "ones, and \"project-metadata convert\" changes all of them");
    }
    return openProject(root);
}

/// @throws OperationError if there is metadata where `request` says that some is to be, and that is to stay
void requirePlace(const pm::MetadataManager& store, const host::Path& root, const ImportRequest& request) {
    if (request.replace)
        return;
    if (!request.top.getPath().empty()) {
        if (store.hasPath(request.top)) {
            throw AddressError(ErrorKind::failure, {"The project has a path ", NodeAddress{request.top},
                                                    " already; --replace replaces it and all that is below it"});
        }
        return;
    }
    if (!store.getChildren({}).empty() || store.hasNode({}) || !findDamage(store).empty()) {
        throw OperationError(ErrorKind::failure,
                             "The project " + quoted(root) + " has metadata already; --replace replaces all of it");
    }
}

/// What the project is to hold: all of `content`; or `before`, but at `top` and below it what `content` has there.
PathTree makeContent(const PathTree& before, const PathTree& content, const pm::MetadataPath& top) {
    if (top.getPath().empty())
        return content;
    const PathTree* const part = findPath(content, top);
    if (!part)
        throw AddressError(ErrorKind::failure, {"The file has no path ", NodeAddress{top}});
    PathTree after = before;
    PathTree* at = &after;
    for (const pm::PathElement& step : top.getPath()) {
        auto child = std::find_if(at->children.begin(), at->children.end(),
                                  [&](const PathTree& tried) { return tried.step == step; });
        if (child == at->children.end()) {
            at->children.emplace_back().step = step;
            child = at->children.end() - 1;
        }
        at = &*child;
    }
    *at = *part;
    return after;
}

}  // namespace

Import importFile(const host::Path& file, const host::Path& root, const ImportRequest& request, Observer& observer) {
    requireNewRoot(root);
    auto progress = observer.start("Reading");
    const PathTree content = readExported(file);
    progress.reset();
    const bool mayReplaceAll = request.replace && request.top.getPath().empty() && !request.folder;
    if (mayReplaceAll && isDamaged(root, observer)) {
        const RestoreRequest restoration{request.store, request.options, request.isDryRun};
        const host::Path damaged = restoreProject(root, content, restoration, observer);
        return {findChange({}, content), damaged};
    }
    progress = observer.start("Reading");
    const bool isNew = !pm::ProjectMetadataLocation(root).hasCoreFile();
    const auto folder = isNew ? chooseFolder(request.folder) : nullptr;
    const auto destination = openDestination(root, isNew, request);
    requirePlace(*destination, root, request);
    const PathTree before = readPaths(*destination, *progress);
    StoreChange change = findChange(before, makeContent(before, content, request.top));
    progress.reset();
    if (isNew && !change.paths)
        change.paths.emplace(1);  // also a file without content makes a project
    if (request.isDryRun) {
        requireFeasible(*destination, root, change);
    } else {
        progress = observer.start("Storing");
        applyChange(*destination, change);
    }
    return {std::move(change), std::nullopt};
}

}  // namespace operations
