#include "store_support/FileReplacement.hpp"

#include <fcntl.h>
#include <linux/limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <optional>
#include <random>
#include <string>
#include <system_error>

#include "host/Interruption.hpp"
#include "store_support/Disk.hpp"
#include "store_support/FileAttributes.hpp"
#include "store_support/StoreErrors.hpp"

namespace store_support {

using Status = struct stat;

namespace {

/// @param examine stat(2) or lstat(2)
/// @return no value if nothing has the name `path`
/// @param file for the error
std::optional<Status> findStatus(int (*examine)(const char*, Status*), const Path& path, const Path& file) {
    Status status{};
    if (examine(path.accessName().c_str(), &status) == 0)
        return status;
    if (errno != ENOENT)
        raiseSystemError(file, errno);
    return std::nullopt;
}

/// Where the symbolic link `file` leads to in the end; `file` itself if it is none. What is there need not exist.
Path findEnd(const Path& file) {
    constexpr int maximumLinks = 40;  // as in path_resolution(7)
    Path end = file;
    for (int i = 0; i < maximumLinks; ++i) {
        std::array<char, PATH_MAX> target{};
        const ssize_t length = readlink(end.accessName().c_str(), target.data(), target.size());
        if (length < 0)
            return end;
        end = end.parentPath() / Path::fromAccessName({target.data(), static_cast<std::size_t>(length)});
    }
    raiseSystemError(file, ELOOP);
}

void requireRegular(const Path& file, mode_t mode) {
    const char16_t* kind = nullptr;
    if (S_ISDIR(mode))
        kind = u"a folder";
    else if (S_ISCHR(mode) || S_ISBLK(mode))
        kind = u"a device";
    else if (S_ISFIFO(mode))
        kind = u"a pipe";
    else if (!S_ISREG(mode))
        kind = u"no regular file";
    if (kind)
        raise<MetadataWriteFailure>(file.text(), u"it is " + std::u16string(kind) + u", and is not replaced");
}

/// A new empty file beside another one, which goes again unless it gets that one's place.
class StagedFile {
public:
    /// @param isPrivate whether only its owner may look into it, until it gets other permissions
    StagedFile(const Path& target, bool isPrivate, const Path& file) {
        const mode_t mode = isPrivate ? 0600 : 0666;
        for (;;) {
            const std::uint64_t number = std::uint64_t{random_()} << 32 | random_();
            path_ = target.parentPath() / fromUtf8(".replacement-" + std::to_string(number));
            const Descriptor made(path_.accessName(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, mode);
            if (made.isOpen())
                return;
            if (errno != EEXIST)
                raiseSystemError(file, errno);
        }
    }

    ~StagedFile() {
        if (!isPlaced_)
            unlink(path_.accessName().c_str());
    }

    StagedFile(const StagedFile&) = delete;
    StagedFile& operator=(const StagedFile&) = delete;

    const Path& path() const noexcept { return path_; }

    /// @return the reason why it failed, 0 if it did not
    int replace(const Path& target) {
        isPlaced_ = std::rename(path_.accessName().c_str(), target.accessName().c_str()) == 0;
        return isPlaced_ ? 0 : errno;
    }

    /// As `replace`, where nothing has the name `target`; with EEXIST if something has.
    int place(const Path& target) {
        const std::string from = path_.accessName();
        const std::string to = target.accessName();
        isPlaced_ = renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0;
        if (isPlaced_ || errno != EINVAL)
            return isPlaced_ ? 0 : errno;
        // A file system that cannot do that may have links. The first name goes at the end.
        return link(from.c_str(), to.c_str()) == 0 ? 0 : errno;
    }

private:
    std::random_device random_;
    Path path_;
    bool isPlaced_ = false;
};

/// @param target what is replaced, if there is an `old` one
void complete(const Path& staged, const Path& target, const std::optional<Status>& old, const Path& file) {
    const Descriptor made(staged.accessName(), O_RDONLY | O_NOFOLLOW);
    if (!made.isOpen())
        raiseSystemError(file, errno);
    if (old)
        takeAttributes(made, target, *old, file);
    if (fsync(made.number()) != 0)
        raiseSystemError(file, errno);
}

Path getFolder(const Path& file) {
    const Path folder = file.parentPath();
    return folder.empty() ? Path(u".") : folder;
}

}  // namespace

void replaceFile(const Path& file, const FileWriter& write) {
    const Path target = findEnd(file);
    // The system follows the link too, and refuses that where a stranger may have put it.
    const auto old = findStatus(stat, file, file);
    const auto found = findStatus(lstat, target, file);
    if (old.has_value() != found.has_value() || (old && (old->st_ino != found->st_ino || old->st_dev != found->st_dev)))
        raise<MetadataWriteFailure>(file.text(), u"somebody else is changing the link just now");
    if (old) {
        requireRegular(file, old->st_mode);
        requireWritable(target);
    }
    StagedFile staged(target, old.has_value(), file);
    writeStaged(write, staged.path(), file);
    host::Interruption::throwIfRequested();
    complete(staged.path(), target, old, file);
    const OpenFolder folder(getFolder(target));
    if (const int reason = staged.replace(target))
        raiseSystemError(file, reason);
    folder.flush();
}

void replaceFile(const Path& file, std::string_view content) {
    replaceFile(file, [content](const Path& staged) {
        errno = 0;
        std::ofstream stream(staged.accessName(), std::ios::binary | std::ios::trunc);
        stream.write(content.data(), static_cast<std::streamsize>(content.size())).flush();
        if (!stream)
            raiseSystemError(staged, errno == 0 ? EIO : errno);
    });
}

void makeFile(const Path& file, const FileWriter& write) {
    if (findStatus(lstat, file, file))
        raiseSystemError(file, EEXIST);
    StagedFile staged(file, false, file);
    writeStaged(write, staged.path(), file);
    host::Interruption::throwIfRequested();
    complete(staged.path(), file, std::nullopt, file);
    const OpenFolder folder(getFolder(file));
    if (const int reason = staged.place(file))
        raiseSystemError(file, reason);
    folder.flush();
}

void writeStaged(const FileWriter& write, const Path& staged, const Path& file) {
    try {
        errno = 0;
        write(staged);
    } catch (const MetadataWriteFailure& error) {
        // The XML writer does not say why it failed, but the system call that did is the last one that failed.
        const int reason = errno == 0 ? EIO : errno;
        const auto& arguments = error.GetBaseMsgIDObj().arguments;
        const auto& cause = std::get<std::u16string>(arguments.at(1));
        // That of another file, from which what is written comes.
        if (!cause.empty() && std::get<std::u16string>(arguments.at(0)) != staged.text())
            throw;
        raise<MetadataWriteFailure>(file.text(),
                                    cause.empty() ? fromUtf8(std::generic_category().message(reason)) : cause);
    }
}

}  // namespace store_support
