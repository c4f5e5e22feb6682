#include "operations/FolderScan.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <deque>
#include <exception>
#include <string_view>
#include <system_error>
#include <unordered_set>

#include "host/FileSystem.hpp"
#include "host/FileUtils.hpp"
#include "operations/Errors.hpp"
#include "operations/Git.hpp"
#include "operations/Library.hpp"
#include "store_support/Disk.hpp"

namespace operations {

namespace {

const std::u16string gitName = u".git";

Instant toInstant(const struct statx_timestamp& time) {
    return {time.tv_sec, time.tv_nsec};
}

FileKind kindOf(mode_t mode) {
    if (S_ISREG(mode))
        return FileKind::file;
    if (S_ISDIR(mode))
        return FileKind::folder;
    return S_ISLNK(mode) ? FileKind::symlink : FileKind::other;
}

/// @param name relative to the open folder `folder`
/// @return the reason why it cannot be looked at, 0 if it can
int readProperties(int folder, const char* name, int flags, ScannedFile& file) {
    struct statx status {};
    constexpr unsigned wanted = STATX_TYPE | STATX_INO | STATX_SIZE | STATX_MTIME | STATX_BTIME;
    if (statx(folder, name, flags | AT_NO_AUTOMOUNT, wanted, &status) != 0)
        return errno;
    file.kind = kindOf(status.stx_mode);
    file.trace.identity.device = std::uint64_t{status.stx_dev_major} << 32U | status.stx_dev_minor;
    file.trace.identity.inode = status.stx_ino;
    file.trace.born = (status.stx_mask & STATX_BTIME) != 0 ? toInstant(status.stx_btime) : Instant();
    file.trace.modified = toInstant(status.stx_mtime);
    file.trace.size = status.stx_size;
    return 0;
}

/// What git ignores in the work trees that it was asked about, by absolute or relative names as the scan makes them.
class IgnoredByGit {
public:
    /// Asks about what lies below `folder`. @param isTop whether that is the folder that is scanned
    void ask(const std::string& folder, bool isTop) {
        const std::string sentence =
            "git cannot say what it ignores in \"" + folder + "\", and --ignored describes that too";
        GitOutcome listed{};
        try {
            const GitOutcome inside = runGit(folder, {"rev-parse", "--is-inside-work-tree"});
            if (inside.status == 0 ? inside.out != "true\n"
                                   : inside.error.find("not a git repository") != std::string::npos)
                return;
            listed =
                inside.status != 0
                    ? inside
                    : runGit(folder, {"ls-files", "-z", "--others", "--ignored", "--exclude-standard", "--directory"});
        } catch (const OperationError&) {
            std::throw_with_nested(OperationError(ErrorKind::failure, sentence));
        }
        if (listed.status != 0)
            throw OperationError(ErrorKind::failure, sentence + ": " + listed.error);
        for (std::string_view rest = listed.out; !rest.empty();) {
            std::string_view name = rest.substr(0, rest.find('\0'));
            rest.remove_prefix(std::min(rest.size(), name.size() + 1));
            if (name == "./" && isTop) {
                throw OperationError(ErrorKind::usage, "git ignores the folder \"" + folder +
                                                           "\" as a whole; --ignored describes what it ignores");
            }
            if (!name.empty() && name.back() == '/')
                name.remove_suffix(1);
            names_.insert(folder + '/' + std::string(name));
        }
    }

    bool has(const std::string& folder, const std::u16string& name) const {
        return !names_.empty() && names_.count(folder + '/' + host::Path(name).accessName()) != 0;
    }

private:
    std::unordered_set<std::string> names_;
};

/// Whether there is a repository around `folder`, or what looks like one.
bool mayBeInWorkTree(const host::Path& folder) {
    host::Path place = host::FileUtils::followLink(host::FileUtils::makeAbsolute(folder));
    for (;;) {
        if (FileIdentity::of(place / u".git"))
            return true;
        const host::Path parent = place.parentPath();
        if (parent == place)
            return false;
        place = parent;
    }
}

struct Folder {
    std::size_t index;
    std::string name;      // as the system takes it
    std::u16string place;  // relative to the scanned folder, with a separator at the end unless it is that one
};

class Scanner {
public:
    Scanner(const ScanRules& rules, Progress& progress) : rules_(rules), progress_(progress) {}

    FolderScan run(const host::Path& top, const std::vector<std::u16string>& way) {
        host::Path folder = top;
        scan_.files.emplace_back();
        for (const std::u16string& name : way) {
            folder /= name;
            const std::size_t above = scan_.files.size() - 1;
            scan_.files[above].firstChild = above + 1;
            scan_.files[above].childCount = 1;
            scan_.files[above].isComplete = false;
            ScannedFile& file = scan_.files.emplace_back();
            readProperties(AT_FDCWD, folder.accessName().c_str(), 0, file);
            file.name = name;
            file.parent = above;
            file.isOnTheWay = true;
        }
        if (rules_.heedGit && mayBeInWorkTree(folder))
            ignored_.ask(folder.accessName(), true);
        folders_.push_back({scan_.files.size() - 1, folder.accessName(), {}});
        while (!folders_.empty()) {
            const Folder next = std::move(folders_.front());
            folders_.pop_front();
            scanOne(next);
        }
        return std::move(scan_);
    }

private:
    void scanOne(const Folder& folder) {
        const bool isTop = folder.place.empty();
        std::vector<ScannedFile> children;
        try {
            children = list(folder, isTop);
        } catch (const project::metadata::ListChildFilesFailure& error) {
            if (isTop)
                throw;
            scan_.problems.push_back(host::toUtf8(explain(error)));
            scan_.files[folder.index].isComplete = false;
            return;
        }
        scan_.files[folder.index].firstChild = scan_.files.size();
        scan_.files[folder.index].childCount = children.size();
        for (ScannedFile& child : children) {
            child.parent = folder.index;
            if (child.kind == FileKind::folder && !child.isLeftOut) {
                folders_.push_back({scan_.files.size(), folder.name + '/' + host::Path(child.name).accessName(),
                                    folder.place + child.name + u'/'});
            }
            scan_.files.push_back(std::move(child));
        }
    }

    /// What lies in `folder`, sorted by name; nothing if the folder has vanished.
    /// @throws ListChildFilesFailure
    std::vector<ScannedFile> list(const Folder& folder, bool isTop) {
        const host::Path path = host::Path::fromAccessName(folder.name);
        const store_support::Descriptor descriptor(folder.name, O_RDONLY | O_DIRECTORY | (isTop ? 0 : O_NOFOLLOW));
        if (!descriptor.isOpen()) {
            if (!isTop && store_support::isAbsence(errno))
                return {};
            raiseListError(path, errno);
        }
        const std::vector<std::string> names = store_support::listNames(path);
        std::vector<ScannedFile> files;
        files.reserve(names.size());
        for (const std::string& name : names) {
            ScannedFile file;
            const int reason = readProperties(descriptor.number(), name.c_str(), AT_SYMLINK_NOFOLLOW, file);
            if (store_support::isAbsence(reason))
                continue;
            if (reason != 0)
                raiseListError(path, reason);
            file.name = host::Path::fromAccessName(name).text();
            files.push_back(std::move(file));
            progress_.advance();
        }
        const auto isRepository = [](const ScannedFile& file) { return file.name == gitName; };
        if (!isTop && rules_.heedGit && std::any_of(files.begin(), files.end(), isRepository))
            ignored_.ask(folder.name, false);
        for (ScannedFile& file : files)
            file.isLeftOut = isLeftOut(folder, file);
        std::sort(files.begin(), files.end(),
                  [](const ScannedFile& a, const ScannedFile& b) { return a.name < b.name; });
        return files;
    }

    [[noreturn]] static void raiseListError(const host::Path& folder, int reason) {
        project::metadata::raise<project::metadata::ListChildFilesFailure>(
            folder.text(), host::fromUtf8(std::generic_category().message(reason)));
    }

    bool isLeftOut(const Folder& folder, const ScannedFile& file) const {
        const auto& others = rules_.leftOut;
        return file.name == gitName || ignored_.has(folder.name, file.name) ||
               std::find(others.begin(), others.end(), file.trace.identity) != others.end() ||
               (rules_.isExcluded && rules_.isExcluded(file.name, folder.place + file.name));
    }

    const ScanRules& rules_;
    Progress& progress_;
    IgnoredByGit ignored_;
    std::deque<Folder> folders_;  // those that are still to be listed
    FolderScan scan_;
};

}  // namespace

std::optional<FileIdentity> FileIdentity::of(const host::Path& path) {
    ScannedFile file;
    const int reason = readProperties(AT_FDCWD, path.accessName().c_str(), 0, file);
    if (store_support::isAbsence(reason))
        return std::nullopt;
    if (reason != 0)
        throw host::FileSystemException(path, std::error_code(reason, std::generic_category()));
    return file.trace.identity;
}

FolderScan scanFolder(const host::Path& top, const std::vector<std::u16string>& way, const ScanRules& rules,
                      Progress& progress) {
    return Scanner(rules, progress).run(top, way);
}

std::u16string formatTime(const Instant& time) {
    const std::time_t seconds = time.first;
    std::tm utc{};
    std::array<char, 64> text{};
    if (!gmtime_r(&seconds, &utc) || std::strftime(text.data(), text.size(), "%FT%T", &utc) == 0)
        return {};
    std::string result = text.data();
    if (time.second != 0) {
        std::snprintf(text.data(), text.size(), ".%09u", time.second);
        result += text.data();
        result.erase(result.find_last_not_of('0') + 1);
    }
    return host::fromUtf8(result + 'Z');
}

bool isTime(const std::u16string& text) {
    constexpr std::u16string_view form = u"0000-00-00T00:00:00";
    const auto isDigit = [](char16_t unit) { return unit >= u'0' && unit <= u'9'; };
    if (text.size() <= form.size() || text.back() != u'Z')
        return false;
    const auto end = text.begin() + form.size();
    const bool isFormed = std::equal(text.begin(), end, form.begin(), [&](char16_t unit, char16_t wanted) {
        return wanted == u'0' ? isDigit(unit) : unit == wanted;
    });
    return isFormed && (*end == u'Z' || *end == u'.') &&
           std::all_of(end + (*end == u'.' ? 1 : 0), text.end() - 1, isDigit);
}

}  // namespace operations
