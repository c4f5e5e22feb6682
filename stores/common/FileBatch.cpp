#include "stores/common/FileBatch.hpp"

#include <fcntl.h>
#include <linux/limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <utility>

#include "host/FileUtils.hpp"
#include "host/TempDirGuard.hpp"
#include "host/Text.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataErrors.hpp"

namespace stores {

using host::Path;
using project::metadata::getParentFolder;
using project::metadata::MetadataWriteFailure;
using project::metadata::raise;
using project::metadata::ReadOnlyMetadataFailure;

namespace {

[[noreturn]] void raiseSystemError(const Path& path, int code) {
    raise<MetadataWriteFailure>(path.text(), host::fromUtf8(std::generic_category().message(code)));
}

void requireWritable(const Path& path) {
    if (!host::FileUtils::isReadOnlyNoExcept(path))
        return;
    project::metadata::handleReadOnlyFile(path);
    if (host::FileUtils::isReadOnlyNoExcept(path))
        raise<ReadOnlyMetadataFailure>(path.text());
}

/// Everything that the batch will touch must be writable, and every name short enough, before anything is touched.
void requireFeasible(const FileBatch& batch) {
    std::set<Path> folders{batch.folder};
    for (const auto* files : {&batch.filesToWrite, &batch.filesToRemove}) {
        for (const Path& file : *files) {
            if (file.accessName().size() >= PATH_MAX)
                raiseSystemError(file, ENAMETOOLONG);
            if (host::FileUtils::existNoExcept(file))
                requireWritable(file);
            folders.insert(getParentFolder(file));
        }
    }
    for (const Path& folder : folders) {
        if (host::FileUtils::existNoExcept(folder))
            requireWritable(folder);
    }
}

/// Flushes everything that was written to the file system of `folder`: one call for a batch of any size.
void flush(const Path& folder) {
    const int descriptor = open(folder.accessName().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
        raiseSystemError(folder, errno);
    const int failure = syncfs(descriptor) == 0 ? 0 : errno;
    close(descriptor);
    if (failure != 0)
        raiseSystemError(folder, failure);
}

/// Renames that can be taken back.
class Renames {
public:
    /// @param attic an existing folder on the same file system, for what is replaced
    explicit Renames(Path attic) : attic_(std::move(attic)) {}

    Renames(const Renames&) = delete;
    Renames& operator=(const Renames&) = delete;

    /// Takes everything back, the last first, unless `keep` was called.
    ~Renames() {
        for (auto step = done_.rbegin(); step != done_.rend(); ++step)
            static_cast<void>(std::rename(step->to.c_str(), step->from.c_str()));
    }

    /// Puts `staged` into the place of `file`, whether that exists or not.
    void replace(const Path& staged, const Path& file) {
        const std::string from = staged.accessName();
        const std::string to = file.accessName();
        const std::string kept = nextAtticName();
        struct stat old {};
        const bool replaces = lstat(to.c_str(), &old) == 0;
        if (replaces) {
            // A second name for the old file, so that it can come back. File systems without links do without.
            if (link(to.c_str(), kept.c_str()) == 0)
                done_.push_back({to, kept});
            chmod(from.c_str(), old.st_mode & 07777);
        }
        if (std::rename(from.c_str(), to.c_str()) != 0)
            raiseSystemError(file, errno);
        if (!replaces)
            done_.push_back({from, to});
    }

    void remove(const Path& file) {
        const std::string from = file.accessName();
        const std::string kept = nextAtticName();
        if (std::rename(from.c_str(), kept.c_str()) != 0)
            raiseSystemError(file, errno);
        done_.push_back({from, kept});
    }

    void keep() noexcept { done_.clear(); }

private:
    struct Step {
        std::string from;
        std::string to;
    };

    std::string nextAtticName() { return attic_.accessName() + "/" + std::to_string(count_++); }

    Path attic_;
    std::size_t count_ = 0;
    std::vector<Step> done_;
};

/// Where `file` stands while it is staged: the scratch folder mirrors the metadata folder.
Path stagedName(const FileBatch& batch, const Path& scratch, const Path& file) {
    const std::size_t prefixLength = (batch.folder / u"-").text().size() - 1;
    return scratch / Path(file.text().substr(prefixLength));
}

/// Writes one new file. @return the cause if that failed
std::optional<std::u16string> tryToStage(const FileBatch& batch, std::size_t index, const Path& staged) {
    try {
        errno = 0;
        batch.write(index, staged);
        return std::nullopt;
    } catch (const MetadataWriteFailure& error) {
        // The XML writer does not say why it failed, but the system call that did is the last one that failed.
        const int reason = errno == 0 ? EIO : errno;
        const auto& cause = std::get<std::u16string>(error.GetBaseMsgIDObj().arguments.at(1));
        return cause.empty() ? host::fromUtf8(std::generic_category().message(reason)) : cause;
    }
}

/// Writes the new files. An error names the file itself, not the staged one.
void stage(const FileBatch& batch, const Path& scratch) {
    for (std::size_t i = 0; i < batch.filesToWrite.size(); ++i) {
        const Path& file = batch.filesToWrite[i];
        if (const auto cause = tryToStage(batch, i, stagedName(batch, scratch, file)))
            raise<MetadataWriteFailure>(file.text(), *cause);
    }
}

/// Removes the folders above `file`, up to the metadata folder, that are empty now.
void removeEmptyFolders(const FileBatch& batch, const Path& file) {
    for (Path folder = getParentFolder(file); folder != batch.folder; folder = getParentFolder(folder)) {
        if (rmdir(folder.accessName().c_str()) != 0)
            return;
    }
}

}  // namespace

void commit(const FileBatch& batch) {
    if (!host::FileUtils::existNoExcept(batch.folder))
        project::metadata::makeFolder(batch.folder);
    requireFeasible(batch);

    const host::TempDirGuard scratchGuard(batch.folder.text(), u".pending-", u"");
    const Path scratch = scratchGuard.getDirectoryName();
    const Path attic = scratch / u".attic";
    project::metadata::makeFolder(attic);
    stage(batch, scratch);
    flush(batch.folder);

    Renames renames(attic);
    for (const Path& file : batch.filesToWrite) {
        project::metadata::makeFolder(getParentFolder(file));
        renames.replace(stagedName(batch, scratch, file), file);
    }
    for (const Path& file : batch.filesToRemove)
        renames.remove(file);
    flush(batch.folder);
    renames.keep();
    for (const Path& file : batch.filesToRemove)
        removeEmptyFolders(batch, file);
}

}  // namespace stores
