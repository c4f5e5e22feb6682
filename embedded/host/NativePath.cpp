#include "embedded/host/NativePath.hpp"

#include "host/FileSystem.hpp"

#include <cerrno>

namespace host {

namespace fs = std::filesystem;

void throwFileSystemError(const Path& path, std::error_code code) {
    for (const auto denied :
         {std::errc::permission_denied, std::errc::operation_not_permitted, std::errc::read_only_file_system}) {
        if (code == denied)
            throw AccessDeniedException(path, code);
    }
    throw FileSystemException(path, code);
}

void throwSystemError(const Path& path, int error) {
    throwFileSystemError(path, {error, std::generic_category()});
}

fs::path toNative(const Path& path) {
    if (path.text().find(u'\0') != std::u16string::npos)
        throwSystemError(path, EINVAL);
    return path.accessName();
}

fs::path withoutTrailingSeparators(const fs::path& path) {
    const std::string& name = path.native();
    const auto end = name.find_last_not_of('/');
    return end == std::string::npos ? name : name.substr(0, end + 1);
}

}  // namespace host
