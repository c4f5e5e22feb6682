#include "store_support/XmlFile.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "store_support/Disk.hpp"
#include "store_support/StoreErrors.hpp"

namespace store_support {

using host::Path;
using project::metadata::MetadataNode;
using project::metadata::MetadataReadFailure;
using project::metadata::PutMetadataKeyFailure;
using project::metadata::PutMetadataValueFailure;
using project::metadata::raise;

namespace {

template <class Error>
std::u16string getArgument(const Error& error) {
    return std::get<std::u16string>(error.GetBaseMsgIDObj().arguments.at(0));
}

/// What is wrong with a file before it is read, nothing if nothing is.
std::u16string findProblem(const struct stat& status) {
    if (S_ISLNK(status.st_mode))
        return u"it is a symbolic link, which is not followed";
    if (!S_ISREG(status.st_mode))
        return u"it is no regular file";
    if (static_cast<std::size_t>(status.st_size) > maximumFileSize)
        return u"it is too large";
    return {};
}

void parse(const Path& file, XmlExtent extent, XmlFile& result) {
    using project::metadata::readFromFile;
    using project::metadata::readRootFromFile;
    result.root = nullptr;
    result.problem.clear();
    try {
        result.root = extent == XmlExtent::wholeTree ? readFromFile(file) : readRootFromFile(file);
    } catch (const MetadataReadFailure& error) {
        result.problem = getReadProblem(error);
    } catch (const PutMetadataKeyFailure& error) {
        result.problem = u"a key of an attribute in it is no XML name: \"" + getArgument(error) + u"\"";
    } catch (const PutMetadataValueFailure& error) {
        result.problem =
            u"a value of an attribute in it holds characters that XML cannot: \"" + getArgument(error) + u"\"";
    }
}

/// The reader does not say whether the system let it down, so this goes the same way once more.
/// @throws MetadataReadFailure if the bytes of `file` cannot be had, unless it does not exist any more
void requireBytes(const Path& file) {
    const Descriptor descriptor(file.accessName(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    std::array<char, 16384> block{};
    ssize_t count = descriptor.isOpen() ? 1 : -1;
    while (count > 0)
        count = TEMP_FAILURE_RETRY(read(descriptor.number(), block.data(), block.size()));
    if (count < 0 && !isAbsence(errno))
        raiseReadError(file, errno);
}

bool isSameContent(FileVersion a, FileVersion b) {
    a.changed = b.changed = 0;
    return a == b;
}

}  // namespace

XmlFile readXmlFile(const Path& file, XmlExtent extent) {
    const auto status = findStatus(file);
    return status ? readXmlFile(file, *status, extent) : XmlFile{};
}

XmlFile readXmlFile(const Path& file, const struct stat& firstStatus, XmlExtent extent) {
    XmlFile result;
    std::optional<struct stat> status = firstStatus;
    bool hasFailed = false;
    // Who changes the file again and again must not keep this busy for ever; a version that is too old is no harm.
    constexpr int patience = 10;
    for (int attempt = 0; status && attempt < patience; ++attempt) {
        result.version = makeFileVersion(*status);
        result.problem = findProblem(*status);
        if (!result.problem.empty())
            return result;
        parse(file, extent, result);
        if (!result.root)
            requireBytes(file);
        status = findStatus(file);
        const bool isSame = status && isSameContent(makeFileVersion(*status), *result.version);
        // What fails once may have been let down by the system; what fails twice, with the bytes at hand, is damaged.
        if (isSame && (result.root || hasFailed))
            return result;
        hasFailed = isSame;
    }
    return status ? result : XmlFile{};
}

}  // namespace store_support
