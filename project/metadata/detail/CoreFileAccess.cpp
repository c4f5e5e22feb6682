#include "project/metadata/detail/CoreFileAccess.hpp"

#include <filesystem>
#include <system_error>

#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataXml.hpp"

namespace project::metadata::detail {

namespace {

/// @throws Error naming `coreFile` if it is neither a regular file nor a folder, which cannot be opened anyway
template <class Error>
void requireNoPipe(const host::Path& coreFile) {
    std::error_code code;
    if (std::filesystem::is_other(coreFile.accessName(), code))
        raise<Error>(coreFile.text(), u"it is no regular file");
}

}  // namespace

std::unique_ptr<MetadataNode> readCoreFile(const host::Path& coreFile) {
    requireNoPipe<MetadataReadFailure>(coreFile);
    return readFromFile(coreFile);
}

void writeCoreFile(const MetadataNode& node, const host::Path& coreFile) {
    requireNoPipe<MetadataWriteFailure>(coreFile);
    const bool compactEnding = true;
    writeToFile(node, coreFile, compactEnding);
}

}  // namespace project::metadata::detail
