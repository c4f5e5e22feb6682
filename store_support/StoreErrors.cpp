#include "store_support/StoreErrors.hpp"

#include <system_error>

#include "host/FileUtils.hpp"
#include "project/metadata/FileUtilities.hpp"

namespace store_support {

void raiseSystemError(const Path& path, int code) {
    raise<MetadataWriteFailure>(path.text(), fromUtf8(std::generic_category().message(code)));
}

void requireWritable(const Path& path) {
    if (!host::FileUtils::isReadOnlyNoExcept(path))
        return;
    project::metadata::handleReadOnlyFile(host::FileUtils::followLink(path));
    if (host::FileUtils::isReadOnlyNoExcept(path))
        raise<project::metadata::ReadOnlyMetadataFailure>(path.text());
}

void raiseReadError(const Path& path, int code) {
    raise<MetadataReadFailure>(path.text(), fromUtf8(std::generic_category().message(code)));
}

std::u16string getReadProblem(const MetadataReadFailure& error) {
    const auto& cause = std::get<std::u16string>(error.GetBaseMsgIDObj().arguments.at(1));
    // The XML reader does not say why it failed.
    return cause.empty() ? u"it is no well-formed XML" : cause;
}

std::u16string describeLoss(const std::u16string& what) {
    return u"it holds " + what + u", which would get lost when it is written again";
}

void reportDamage(const MetadataDamage& damage) {
    if (project::metadata::tellDamage(damage))
        return;
    project::metadata::logger().log(host::Severity::warning,
                                    damage.file.accessName() + " is damaged: " + toUtf8(damage.problem));
}

}  // namespace store_support
