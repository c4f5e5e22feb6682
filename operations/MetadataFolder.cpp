#include "operations/MetadataFolder.hpp"

#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <vector>

#include "host/FileUtils.hpp"
#include "operations/Errors.hpp"
#include "project/metadata/MetadataFiles.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"
#include "store_support/Disk.hpp"
#include "store_support/FolderLock.hpp"
#include "store_support/StoreErrors.hpp"

namespace operations {

namespace fs = std::filesystem;

OwnFiles listOwnFiles(const host::Path& root, const pm::MetadataManager& store) {
    const auto getPlace = [](const host::Path& path) {
        return fs::path(host::FileUtils::makeAbsolute(path).accessName());
    };
    const fs::path folder = getPlace(pm::ProjectMetadataLocation(root).getDirectory());
    const std::string lock = store_support::getLockFile({}).accessName();
    OwnFiles own{{}, {lock}};
    const auto* const lister = dynamic_cast<const pm::StoreFileLister*>(&store);
    for (const pm::StoreFile& file : lister ? lister->listFiles() : std::vector<pm::StoreFile>()) {
        const fs::path name = getPlace(file.file).lexically_relative(folder);
        if (name.empty() || *name.begin() == "..") {
            throw OperationError(ErrorKind::failure, "The store of " + quoted(root) + " takes " + quoted(file.file) +
                                                         ", which lies elsewhere, for its own");
        }
        own.all.insert(name);
        if (!file.hasContent)
            own.transient.insert(name);
    }
    return own;
}

void copyForeignFiles(const fs::path& folder, const OwnFiles& own, const fs::path& target, Observer& observer) {
    const auto progress = observer.start("Copying");
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        progress->advance();
        const fs::path name = entry.path().lexically_relative(folder);
        if (entry.is_directory() && !entry.is_symlink()) {
            if (fs::is_empty(entry.path()))
                store_support::makeFolderOfOwner(toPath(target / name));
            continue;
        }
        if (own.all.count(name) > 0 || own.transient.count(name) > 0)
            continue;
        store_support::makeFolderOfOwner(toPath((target / name).parent_path()));
        fs::copy(entry.path(), target / name, fs::copy_options::copy_symlinks);
        if (const auto status = store_support::findStatus(toPath(entry.path())))
            store_support::giveToOwner(toPath(target / name), *status);
        if (entry.is_regular_file())
            fs::last_write_time(target / name, entry.last_write_time());
    }
    fs::permissions(target, fs::status(folder).permissions());
}

bool exchangeFolders(const fs::path& a, const fs::path& b) {
    if (renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE) == 0)
        return true;
    if (errno == EINVAL || errno == ENOSYS)
        return false;
    store_support::raiseSystemError(toPath(b), errno);
}

host::Path toPath(const fs::path& path) {
    return host::Path::fromAccessName(path.native());
}

}  // namespace operations
