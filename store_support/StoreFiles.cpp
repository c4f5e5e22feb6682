#include "store_support/StoreFiles.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "host/Text.hpp"
#include "project/metadata/CoreFile.hpp"
#include "project/metadata/FileUtilities.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "store_support/BatchJournal.hpp"
#include "store_support/FolderLock.hpp"

namespace store_support {

using host::Path;
using project::metadata::StoreFile;

namespace {

/// @return 0 if nothing has that name, or can have it because it is too long
mode_t getMode(const Path& path) {
    struct stat status {};
    if (lstat(path.accessName().c_str(), &status) == 0)
        return status.st_mode;
    if (errno != ENOENT && errno != ENOTDIR && errno != ENAMETOOLONG) {
        project::metadata::raise<project::metadata::ListChildFilesFailure>(
            path.text(), host::fromUtf8(std::generic_category().message(errno)));
    }
    return 0;
}

void addAllBelow(const Path& path, std::vector<StoreFile>& files) {
    if (!isFolder(path)) {
        files.push_back({path, false});
        return;
    }
    for (const Path& entry : project::metadata::listChildFiles(path))
        addAllBelow(entry, files);
}

}  // namespace

bool isFolder(const Path& path) {
    return S_ISDIR(getMode(path));
}

std::vector<StoreFile> listStoreFiles(const Path& folder, std::vector<StoreFile> files) {
    files.push_back({folder / project::metadata::coreFileName(), true});
    files.push_back({getLockFile(folder), false});
    addAllBelow(getScratchFolder(folder), files);
    const auto isNone = [](const StoreFile& file) {
        const mode_t mode = getMode(file.file);
        return mode == 0 || S_ISDIR(mode);
    };
    files.erase(std::remove_if(files.begin(), files.end(), isNone), files.end());
    std::sort(files.begin(), files.end(), [](const StoreFile& a, const StoreFile& b) { return a.file < b.file; });
    return files;
}

}  // namespace store_support
