#include "stores/sqlite/FileCheck.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <string>
#include <system_error>

#include "host/Text.hpp"
#include "project/metadata/MetadataErrors.hpp"

namespace stores::sqlite {

using host::Path;
using project::metadata::MetadataReadFailure;
using project::metadata::raise;

namespace {

// From SQLite's description of the file format: a journal begins with a mark of 8 bytes, the number of its pages, a
// number of no meaning, the number of pages that the database had, the size of a sector and that of a page, 4 bytes
// each, the highest first. If it names a super-journal, it ends with that name, its length, its checksum and the mark.
constexpr std::array<unsigned char, 8> mark = {0xD9, 0xD5, 0x05, 0xF9, 0x20, 0xA1, 0x63, 0xD7};
constexpr std::size_t pageCountAt = 16;
constexpr std::size_t pageSizeAt = 24;
constexpr std::size_t headerSize = 28;
constexpr std::uint64_t largestPage = 65536;

Path withEnding(const Path& database, const char16_t* ending) {
    return Path(database.text() + ending);
}

std::uint64_t getNumber(const std::array<unsigned char, headerSize>& header, std::size_t at) {
    return std::uint64_t{header[at]} << 24 | std::uint64_t{header[at + 1]} << 16 | std::uint64_t{header[at + 2]} << 8 |
           header[at + 3];
}

[[noreturn]] void refuse(const Path& file, const std::u16string& cause) {
    raise<MetadataReadFailure>(file.text(), cause);
}

[[noreturn]] void refuse(const Path& file, int code) {
    refuse(file, host::fromUtf8(std::generic_category().message(code)));
}

void requireRegular(const Path& file, const struct stat& status) {
    if (S_ISLNK(status.st_mode))
        refuse(file, u"it is a symbolic link, which is not followed");
    if (!S_ISREG(status.st_mode))
        refuse(file, u"it is no regular file");
}

bool isMissing(int code) {
    return code == ENOENT || code == ENOTDIR;
}

/// A journal that is open for reading.
class OpenJournal {
public:
    explicit OpenJournal(const Path& file)
        : file_(file),
          descriptor_(open(file.accessName().c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY)) {
        // Whoever writes the database may have removed it just now.
        if (descriptor_ < 0 && !isMissing(errno))
            refuse(file_, errno);
    }

    ~OpenJournal() {
        if (descriptor_ >= 0)
            close(descriptor_);
    }

    OpenJournal(const OpenJournal&) = delete;
    OpenJournal& operator=(const OpenJournal&) = delete;

    /// @return whether there are so many bytes at `offset`
    template <std::size_t size>
    bool read(std::array<unsigned char, size>& bytes, off_t offset) const {
        if (descriptor_ < 0 || offset < 0)
            return false;
        const ssize_t count = pread(descriptor_, bytes.data(), size, offset);
        if (count < 0)
            refuse(file_, errno);
        return static_cast<std::size_t>(count) == size;
    }

private:
    const Path& file_;
    int descriptor_;
};

}  // namespace

std::optional<struct stat> examine(const Path& file) {
    struct stat status {};
    if (lstat(file.accessName().c_str(), &status) == 0) {
        requireRegular(file, status);
        return status;
    }
    if (!isMissing(errno))
        refuse(file, errno);
    return std::nullopt;
}

HeldFile::HeldFile(const Path& file) : descriptor_(open(file.accessName().c_str(), O_PATH | O_CLOEXEC | O_NOFOLLOW)) {
    if (descriptor_ < 0)
        refuse(file, errno);
    try {
        if (fstat(descriptor_, &status_) != 0)
            refuse(file, errno);
        requireRegular(file, status_);
    } catch (...) {
        close(descriptor_);
        throw;
    }
}

HeldFile::~HeldFile() {
    if (descriptor_ >= 0)
        close(descriptor_);
}

void requireHarmlessJournal(const Path& database, const struct stat& status) {
    const Path file = withEnding(database, u"-journal");
    const auto journal = examine(file);
    if (!journal)
        return;
    const OpenJournal opened(file);
    // SQLite looks at the end also where it does not take the rest for a journal.
    std::array<unsigned char, mark.size()> end{};
    if (opened.read(end, journal->st_size - static_cast<off_t>(end.size())) && end == mark)
        refuse(file, u"it names another file that is to be removed, as no store has it done");
    std::array<unsigned char, headerSize> header{};
    if (!opened.read(header, 0) || !std::equal(mark.begin(), mark.end(), header.begin()))
        return;
    // Without a size of pages, that of the database holds, which is not looked up here.
    const std::uint64_t pageSize = getNumber(header, pageSizeAt) == 0 ? largestPage : getNumber(header, pageSizeAt);
    const auto bytes = static_cast<std::uint64_t>(status.st_size) + static_cast<std::uint64_t>(journal->st_size);
    if (getNumber(header, pageCountAt) * pageSize > bytes)
        refuse(file, u"it is the journal of a larger database");
}

void requireHarmlessLog(const Path& database) {
    examine(withEnding(database, u"-wal"));
    examine(withEnding(database, u"-shm"));
}

}  // namespace stores::sqlite
