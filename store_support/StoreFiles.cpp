#include "store_support/StoreFiles.hpp"

#include <algorithm>
#include <string>

#include "store_support/BatchJournal.hpp"
#include "store_support/Disk.hpp"
#include "store_support/FolderLock.hpp"

namespace store_support {

using project::metadata::StoreFile;

namespace {

void addAllBelow(const Path& path, std::vector<StoreFile>& files) {
    if (!isFolder(path)) {
        files.push_back({path, false});
        return;
    }
    for (const std::string& name : listNames(path))
        addAllBelow(path / Path::fromAccessName(name), files);
}

}  // namespace

std::vector<StoreFile> listStoreFiles(const Path& folder, std::vector<StoreFile> files) {
    files.push_back({folder / coreFileName(), true});
    files.push_back({getLockFile(folder), false});
    addAllBelow(getScratchFolder(folder), files);
    const auto isNone = [](const StoreFile& file) {
        const auto status = findStatus(file.file);
        return !status || S_ISDIR(status->st_mode);
    };
    files.erase(std::remove_if(files.begin(), files.end(), isNone), files.end());
    std::sort(files.begin(), files.end(), [](const StoreFile& a, const StoreFile& b) { return a.file < b.file; });
    return files;
}

}  // namespace store_support
