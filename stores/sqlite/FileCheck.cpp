#include "stores/sqlite/FileCheck.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <string>

#include "store_support/StoreErrors.hpp"

namespace stores::sqlite {

namespace {

// From SQLite's description of the file format: a journal begins with a mark of 8 bytes, the number of its pages, a
// number of no meaning, the number of pages that the database had, the size of a sector and that of a page, 4 bytes
// each, the highest first. If it names a super-journal, it ends with that name, its length, its checksum and the mark.
constexpr std::array<unsigned char, 8> journalMark = {0xD9, 0xD5, 0x05, 0xF9, 0x20, 0xA1, 0x63, 0xD7};
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

/// @return whether there are so many bytes at `offset` of the journal `file`
template <std::size_t size>
bool readAt(const Path& file, const Descriptor& descriptor, off_t offset, std::array<unsigned char, size>& bytes) {
    if (offset < 0)
        return false;
    const ssize_t count = TEMP_FAILURE_RETRY(pread(descriptor.number(), bytes.data(), size, offset));
    if (count < 0)
        raiseReadError(file, errno);
    return static_cast<std::size_t>(count) == size;
}

}  // namespace

std::optional<struct stat> examine(const Path& file) {
    const auto status = findStatus(file);
    if (status)
        requireRegular(file, *status);
    return status;
}

HeldFile::HeldFile(const Path& file) : descriptor_(file.accessName(), O_PATH | O_NOFOLLOW) {
    if (!descriptor_.isOpen() || fstat(descriptor_.number(), &status_) != 0)
        raiseReadError(file, errno);
    requireRegular(file, status_);
}

void requireHarmlessJournal(const Path& database, const struct stat& status) {
    const Path file = withEnding(database, u"-journal");
    // Whoever writes the database may have removed it just now.
    const auto journal = openRegularFile(file);
    if (!journal)
        return;
    const auto refuse = [&](const std::u16string& cause) { raise<MetadataReadFailure>(file.text(), cause); };
    // SQLite looks at the end also where it does not take the rest for a journal.
    std::array<unsigned char, journalMark.size()> end{};
    const off_t endAt = journal->status.st_size - static_cast<off_t>(end.size());
    if (readAt(file, journal->descriptor, endAt, end) && end == journalMark)
        refuse(u"it names another file that is to be removed, as no store has it done");
    std::array<unsigned char, headerSize> header{};
    if (!readAt(file, journal->descriptor, 0, header) ||
        !std::equal(journalMark.begin(), journalMark.end(), header.begin()))
        return;
    // Without a size of pages, that of the database holds, which is not looked up here.
    const std::uint64_t pageSize = getNumber(header, pageSizeAt) == 0 ? largestPage : getNumber(header, pageSizeAt);
    const auto bytes = static_cast<std::uint64_t>(status.st_size) + static_cast<std::uint64_t>(journal->status.st_size);
    if (getNumber(header, pageCountAt) * pageSize > bytes)
        refuse(u"it is the journal of a larger database");
}

void requireHarmlessLog(const Path& database) {
    examine(withEnding(database, u"-wal"));
    examine(withEnding(database, u"-shm"));
}

}  // namespace stores::sqlite
