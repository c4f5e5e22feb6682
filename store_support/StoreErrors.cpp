#include "store_support/StoreErrors.hpp"

#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "host/FileUtils.hpp"
#include "host/Text.hpp"
#include "project/metadata/FileUtilities.hpp"

namespace store_support {

using host::Path;

void raiseSystemError(const Path& path, int code) {
    project::metadata::raise<project::metadata::MetadataWriteFailure>(
        path.text(), host::fromUtf8(std::generic_category().message(code)));
}

void requireWritable(const Path& path) {
    if (!host::FileUtils::isReadOnlyNoExcept(path))
        return;
    project::metadata::handleReadOnlyFile(host::FileUtils::followLink(path));
    if (host::FileUtils::isReadOnlyNoExcept(path))
        project::metadata::raise<project::metadata::ReadOnlyMetadataFailure>(path.text());
}

std::u16string getReadProblem(const Path& file, const project::metadata::MetadataReadFailure& error) {
    const auto& cause = std::get<std::u16string>(error.GetBaseMsgIDObj().arguments.at(1));
    if (!cause.empty())
        return cause;
    // The XML reader does not say why it failed.
    if (access(file.accessName().c_str(), R_OK) != 0)
        return host::fromUtf8(std::generic_category().message(errno));
    return u"it is no well-formed XML";
}

void reportDamage(const project::metadata::MetadataDamage& damage) {
    if (project::metadata::tellDamage(damage))
        return;
    project::metadata::logger().log(host::Severity::warning,
                                    damage.file.accessName() + " is damaged: " + host::toUtf8(damage.problem));
}

}  // namespace store_support
