#include "operations/FolderVersion.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>

#include "store_support/Disk.hpp"

namespace operations {

namespace fs = std::filesystem;

namespace {

std::string getRelative(const fs::path& file, const fs::path& folder) {
    return file.native().substr(folder.native().size() + 1);
}

}  // namespace

FolderVersion::FolderVersion(const fs::path& folder, const std::set<std::string>& leftOut) : leftOut_(leftOut) {
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        std::string name = getRelative(entry.path(), folder);
        struct stat status {};
        if (lstat(entry.path().c_str(), &status) != 0 || S_ISDIR(status.st_mode) || leftOut.count(name) > 0)
            continue;
        files_.emplace(std::move(name), store_support::FileVersion{status.st_ino, status.st_size,
                                                                   store_support::toNanoseconds(status.st_mtim),
                                                                   store_support::toNanoseconds(status.st_ctim)});
    }
}

std::optional<std::string> FolderVersion::findDifference(const fs::path& folder) const {
    const FolderVersion later(folder, leftOut_);
    const auto [mine, theirs] = std::mismatch(files_.begin(), files_.end(), later.files_.begin(), later.files_.end());
    if (mine == files_.end() && theirs == later.files_.end())
        return std::nullopt;
    if (mine == files_.end() || (theirs != later.files_.end() && theirs->first < mine->first))
        return theirs->first;
    return mine->first;
}

std::optional<std::string> findLockedFile(const fs::path& folder) {
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        if (!fs::is_regular_file(entry.symlink_status()))
            continue;
        const store_support::Descriptor descriptor(entry.path(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
        struct flock lock {};
        lock.l_type = F_WRLCK;  // of the whole file
        if (descriptor.isOpen() && fcntl(descriptor.number(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK)
            return getRelative(entry.path(), folder);
    }
    return std::nullopt;
}

}  // namespace operations
