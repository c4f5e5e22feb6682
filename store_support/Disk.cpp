#include "store_support/Disk.hpp"

#include <dirent.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <system_error>

#include "project/metadata/FileUtilities.hpp"
#include "store_support/StoreErrors.hpp"

namespace store_support {

using project::metadata::ListChildFilesFailure;

namespace {

using Folder = std::unique_ptr<DIR, int (*)(DIR*)>;

bool isItselfOrParent(std::string_view name) {
    return name == "." || name == "..";
}

/// The next entry of `folder`, null at the end.
/// @param code what is wrong, 0 if nothing is
dirent* readNext(const Folder& folder, int& code) {
    errno = 0;
    dirent* entry = nullptr;
    do
        entry = readdir(folder.get());
    while (entry && isItselfOrParent(entry->d_name));
    code = entry ? 0 : errno;
    return entry;
}

template <class Visit>
void visitEntries(const Path& path, const Visit& visit) {
    const Folder folder(opendir(path.accessName().c_str()), closedir);
    int code = folder ? 0 : errno;
    if (!folder && isAbsence(code))
        return;
    while (const dirent* const entry = folder ? readNext(folder, code) : nullptr)
        visit(*entry);
    if (code != 0)
        raise<ListChildFilesFailure>(path.text(), host::fromUtf8(std::generic_category().message(code)));
}

/// Removes what is in the folder `name` in the one with the descriptor `parent`, and the folder.
/// @return 0, or the error number: EPERM if it is no folder, for that is why it was tried
int removeFolder(int parent, const char* name) {
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    const auto descriptor = static_cast<int>(TEMP_FAILURE_RETRY(openat(parent, name, flags)));
    if (descriptor < 0) {
        const int code = errno == ENOTDIR ? EPERM : errno;
        // An empty one goes even if this process may not look into it.
        return code == EACCES && unlinkat(parent, name, AT_REMOVEDIR) == 0 ? 0 : code;
    }
    const Folder folder(fdopendir(descriptor), closedir);
    if (!folder) {
        const int code = errno;
        close(descriptor);
        return code;
    }
    int code = 0;
    while (const dirent* const entry = readNext(folder, code)) {
        if (unlinkat(descriptor, entry->d_name, 0) == 0 || errno == ENOENT)
            continue;
        code = errno == EISDIR || errno == EPERM ? removeFolder(descriptor, entry->d_name) : errno;
        if (code != 0)
            return code;
    }
    if (code != 0)
        return code;
    return unlinkat(parent, name, AT_REMOVEDIR) == 0 || errno == ENOENT ? 0 : errno;
}

template <class Flush>
void flush(const Path& path, const Descriptor& descriptor, const Flush& flushDescriptor) {
    if (!descriptor.isOpen() || flushDescriptor(descriptor.number()) != 0)
        raiseSystemError(path, errno);
}

bool isSuperuser() {
    return geteuid() == 0;
}

}  // namespace

int openFile(const std::string& name, int flags, mode_t mode, int folder) noexcept {
    return static_cast<int>(TEMP_FAILURE_RETRY(openat(folder, name.c_str(), flags | O_CLOEXEC, mode)));
}

Descriptor::~Descriptor() {
    if (number_ >= 0)
        close(number_);
}

OpenFolder::OpenFolder(const Path& path) : path_(path), descriptor_(path.accessName(), O_RDONLY | O_DIRECTORY) {
    if (!descriptor_.isOpen())
        raiseSystemError(path, errno);
}

void OpenFolder::flush() const {
    store_support::flush(path_, descriptor_, fsync);
}

void OpenFolder::flushFileSystem() const {
    store_support::flush(path_, descriptor_, syncfs);
}

bool isAbsence(int code) {
    return code == ENOENT || code == ENOTDIR || code == ENAMETOOLONG;
}

std::optional<struct stat> findStatus(const Path& path) {
    return findStatus(path, path.accessName());
}

std::optional<struct stat> findStatus(const Path& path, const std::string& name) {
    struct stat status {};
    if (lstat(name.c_str(), &status) == 0)
        return status;
    if (!isAbsence(errno))
        raiseReadError(path, errno);
    return std::nullopt;
}

bool exists(const Path& path) {
    return findStatus(path).has_value();
}

bool isFolder(const Path& path) {
    const auto status = findStatus(path);
    return status && S_ISDIR(status->st_mode);
}

std::vector<std::string> listNames(const Path& folder) {
    std::vector<std::string> names;
    visitEntries(folder, [&](const dirent& entry) { names.emplace_back(entry.d_name); });
    return names;
}

std::vector<FolderEntry> listEntries(const Path& folder) {
    std::vector<FolderEntry> entries;
    visitEntries(folder, [&](const dirent& entry) {
        entries.push_back({entry.d_name, entry.d_ino, entry.d_type == DT_REG});
    });
    return entries;
}

std::u16string getIrregularity(const struct stat& status) {
    if (S_ISLNK(status.st_mode))
        return u"it is a symbolic link, which is not followed";
    return S_ISREG(status.st_mode) ? u"" : u"it is no regular file";
}

void requireRegular(const Path& path, const struct stat& status) {
    if (const std::u16string problem = getIrregularity(status); !problem.empty())
        raise<MetadataReadFailure>(path.text(), problem);
}

std::optional<OpenFile> openRegularFile(const Path& file, int flags) {
    OpenFile opened;
    opened.descriptor = Descriptor(file.accessName(), O_RDONLY | O_NONBLOCK | O_NOCTTY | flags);
    if (!opened.descriptor.isOpen()) {
        const int code = errno;
        if (isAbsence(code))
            return std::nullopt;
        // Some cannot be opened, and what they are says more than why.
        if (const auto status = code == EACCES ? std::nullopt : findStatus(file); status && (flags & O_NOFOLLOW) != 0)
            requireRegular(file, *status);
        raiseReadError(file, code);
    }
    if (fstat(opened.descriptor.number(), &opened.status) != 0)
        raiseReadError(file, errno);
    requireRegular(file, opened.status);
    return opened;
}

std::optional<std::string> readRegularFile(const Path& file, std::size_t maximumSize) {
    const auto opened = openRegularFile(file);
    if (!opened)
        return std::nullopt;
    std::string bytes;
    std::array<char, 16384> block{};
    for (;;) {
        const auto count = TEMP_FAILURE_RETRY(read(opened->descriptor.number(), block.data(), block.size()));
        if (count < 0)
            raiseReadError(file, errno);
        if (count == 0)
            return bytes;
        bytes.append(block.data(), static_cast<std::size_t>(count));
        if (bytes.size() > maximumSize)
            raise<MetadataReadFailure>(file.text(), u"it is too large");
    }
}

void writeFlushed(const Path& file, std::string_view bytes) {
    const Descriptor descriptor(file.accessName(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, 0666);
    bool isGood = descriptor.isOpen();
    while (isGood && !bytes.empty()) {
        const auto count = TEMP_FAILURE_RETRY(write(descriptor.number(), bytes.data(), bytes.size()));
        isGood = count >= 0;
        bytes.remove_prefix(isGood ? static_cast<std::size_t>(count) : 0);
    }
    if (!isGood || fsync(descriptor.number()) != 0)
        raiseSystemError(file, errno);
}

void giveToOwner(const Path& made, const struct stat& model) {
    if (!isSuperuser())
        return;
    const auto isSame = [&](const struct stat& status) {
        return status.st_uid == model.st_uid && status.st_gid == model.st_gid;
    };
    const std::string name = made.accessName();
    struct stat status {};
    if (lstat(name.c_str(), &status) != 0 || isSame(status))
        return;
    // The owner of the folder may have put something else there: a link to what is not his is never given to him.
    const Descriptor descriptor(name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    if (!descriptor.isOpen() || fstat(descriptor.number(), &status) != 0)
        return;
    if (S_ISDIR(status.st_mode) || (S_ISREG(status.st_mode) && status.st_nlink == 1))
        static_cast<void>(fchown(descriptor.number(), model.st_uid, model.st_gid) == 0);
}

void giveToOwnerOfFolder(const Path& made) {
    struct stat status {};
    if (isSuperuser() && stat(project::metadata::getParentFolder(made).accessName().c_str(), &status) == 0)
        giveToOwner(made, status);
}

std::vector<Path> findMissingFolders(const Path& folder) {
    std::vector<Path> missing;
    struct stat status {};
    for (Path place = folder; !place.empty() && lstat(place.accessName().c_str(), &status) != 0 && isAbsence(errno);) {
        missing.push_back(place);
        place = project::metadata::getParentFolder(place);
    }
    return missing;
}

void makeFolderOfOwner(const Path& folder) {
    const std::vector<Path> missing = isSuperuser() ? findMissingFolders(folder) : std::vector<Path>();
    project::metadata::makeFolder(folder);
    for (auto place = missing.rbegin(); place != missing.rend(); ++place)
        giveToOwnerOfFolder(*place);
}

void removeTree(const Path& path) {
    const std::string name = path.accessName();
    if (unlink(name.c_str()) == 0 || isAbsence(errno))
        return;
    const int code = errno == EISDIR || errno == EPERM ? removeFolder(AT_FDCWD, name.c_str()) : errno;
    if (code != 0 && !isAbsence(code))
        raiseSystemError(path, code);
}

void flushFile(const Path& path) {
    store_support::flush(path, Descriptor(path.accessName(), O_RDONLY), fsync);
}

void flushFileSystem(const Path& folder) {
    OpenFolder(folder).flushFileSystem();
}

}  // namespace store_support
