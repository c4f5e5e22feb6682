#include "operations/SingleFile.hpp"

#include <exception>
#include <optional>
#include <string>

#include "host/FileSystem.hpp"
#include "host/MessageException.hpp"
#include "host/Text.hpp"
#include "operations/Errors.hpp"
#include "operations/Project.hpp"
#include "project/metadata/CoreFile.hpp"
#include "project/metadata/FactoryRegistry.hpp"
#include "project/metadata/MetadataRoots.hpp"
#include "project/metadata/ProjectMetadataLocation.hpp"

namespace operations {

namespace pm = project::metadata;

namespace {

/// The kind of store that `writeMetadataToSingleFile` uses. The core file of another kind does not hold its content.
const std::u16string singleFileType = u"monolithic";

/// The sentence of the exception being handled, in bytes.
std::string describeCurrentException() {
    try {
        throw;
    } catch (const host::UserException& error) {
        return host::Path(explain(error)).accessName();
    } catch (const std::exception& error) {
        return error.what();
    }
}

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
    for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

}  // namespace

SingleFile::SingleFile(const host::Path& file, Observer& observer)
    : scratch_(host::FileSystem::temp_directory_name().text(), u"", u"") {
    observer.useScratchFolder(host::Path(scratch_.getDirectoryName()));
    host::FileSystem::create_directories(copy().parentPath());
    host::FileSystem::copy_file(file, copy(), host::CopyOption::none);
    try {
        open(file);
    } catch (const OperationError&) {
        throw;
    } catch (const std::exception&) {
        // The user knows the file by another name.
        throw OperationError(ErrorKind::failure,
                             replaceAll(describeCurrentException(), copy().accessName(), file.accessName()));
    }
}

host::Path SingleFile::copy() const {
    return host::Path(scratch_.getDirectoryName()) / pm::getSelectableRoots().front() / pm::coreFileName();
}

void SingleFile::open(const host::Path& file) {
    const host::Path root(scratch_.getDirectoryName());
    const std::optional<std::u16string> type = pm::ProjectMetadataLocation(root).getMetadataType();
    if (!type)
        throw OperationError(ErrorKind::failure,
                             quoted(file) + " is no exported metadata: it names no type of metadata");
    if (*type != singleFileType) {
        throw OperationError(ErrorKind::failure, quoted(file) + " holds no content: it belongs to metadata of type \"" +
                                                     host::toUtf8(*type) +
                                                     "\", which keeps that in other files; \"project-metadata export\" "
                                                     "writes all into one");
    }
    const auto factory = pm::getNamedFactory(*type);
    if (!factory) {
        throw OperationError(ErrorKind::failure, "There is no store for metadata of type \"" + host::toUtf8(*type) +
                                                     "\", which " + quoted(file) +
                                                     " names; there are: " + listStoreNames());
    }
    store_ = factory->createManager(root);
    damage_ = findDamage(*store_);
}

}  // namespace operations
