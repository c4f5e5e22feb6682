#include "store_support/XmlFile.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "project/metadata/MetadataXml.hpp"
#include "store_support/Disk.hpp"
#include "store_support/StoreErrors.hpp"

namespace store_support {

using project::metadata::PutMetadataKeyFailure;
using project::metadata::PutMetadataValueFailure;
using project::metadata::RefusedAttribute;

namespace {

std::u16string describe(const RefusedAttribute& refused) {
    const std::u16string line = fromUtf8(std::to_string(refused.line));
    if (refused.isKeyRefused)
        return u"the key of an attribute in line " + line + u" is no XML name: \"" + refused.key + u"\"";
    return u"the value of \"" + refused.key + u"\" in line " + line + u" holds characters that XML cannot: \"" +
           refused.value + u"\"";
}

/// What is wrong with a file before it is read, nothing if nothing is.
std::u16string findProblem(const struct stat& status) {
    const bool isTooLarge = S_ISREG(status.st_mode) && static_cast<std::size_t>(status.st_size) > maximumFileSize;
    return isTooLarge ? u"it is too large" : getIrregularity(status);
}

void parseTree(const Path& file, XmlExtent extent, XmlFile& result) {
    project::metadata::LeftOut leftOut;
    try {
        result.root = project::metadata::readFromFile(file, leftOut);
    } catch (const MetadataReadFailure& error) {
        result.problem = getReadProblem(error);
    }
    for (const RefusedAttribute& attribute : leftOut.refused)
        result.lacks.push_back({attribute.node, describe(attribute)});
    if (extent != XmlExtent::aroundRefused && !result.lacks.empty()) {
        result.root = nullptr;
        result.problem = result.lacks.front().problem;
        result.lacks.clear();
    }
    if (!leftOut.passedOver.empty())
        result.foreign = describeLoss(leftOut.passedOver);
}

void parseRoot(const Path& file, XmlFile& result) {
    try {
        result.root = project::metadata::readRootFromFile(file);
    } catch (const MetadataReadFailure& error) {
        result.problem = getReadProblem(error);
    } catch (const PutMetadataKeyFailure&) {
        parseTree(file, XmlExtent::rootOnly, result);
    } catch (const PutMetadataValueFailure&) {
        parseTree(file, XmlExtent::rootOnly, result);
    }
}

/// Reads what `result` is to say but for its version.
void parse(const Path& file, XmlExtent extent, XmlFile& result) {
    result = {result.version, nullptr, {}, {}, {}};
    if (extent == XmlExtent::rootOnly)
        parseRoot(file, result);
    else
        parseTree(file, extent, result);
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

std::optional<XmlFile> readSmallFile(const std::string& name, int folder) {
    constexpr std::size_t size = 16384;
    const Descriptor descriptor(name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK, 0, folder);
    struct stat before {};
    struct stat after {};
    if (!descriptor.isOpen() || fstat(descriptor.number(), &before) != 0 || !S_ISREG(before.st_mode) ||
        before.st_size >= static_cast<off_t>(size)) {
        return std::nullopt;
    }
    std::array<char, size> bytes;
    const auto count = TEMP_FAILURE_RETRY(read(descriptor.number(), bytes.data(), bytes.size()));
    if (count != before.st_size || fstat(descriptor.number(), &after) != 0)
        return std::nullopt;
    const FileVersion version = makeFileVersion(before);
    if (!isSameContent(version, makeFileVersion(after)))
        return std::nullopt;
    XmlFile result;
    try {
        result.root = project::metadata::readPlainBytes({bytes.data(), static_cast<std::size_t>(count)});
    } catch (const project::exception::ProjectException&) {
        return std::nullopt;
    }
    if (!result.root)
        return std::nullopt;
    result.version = version;
    return result;
}

XmlFile readXmlFile(const Path& file, XmlExtent extent) {
    const auto status = findStatus(file);
    return status ? readXmlFile(file, *status, extent) : XmlFile{};
}

XmlFile readXmlFile(const Path& file, const struct stat& firstStatus, XmlExtent extent) {
    if (extent == XmlExtent::wholeTree && S_ISREG(firstStatus.st_mode)) {
        if (auto small = readSmallFile(file.accessName()))
            return *std::move(small);
    }
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
