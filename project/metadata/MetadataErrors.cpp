#include "project/metadata/MetadataErrors.hpp"

#include "host/FileSystem.hpp"

namespace project::metadata {

std::u16string getCauseMessage() {
    if (!std::current_exception())
        return {};
    try {
        throw;
    } catch (const host::FileSystemException& error) {
        return host::FileSystem::getExceptionMessage(error);
    } catch (const host::UserException& error) {
        return error.ToUstring();
    } catch (...) {
        return {};
    }
}

}  // namespace project::metadata
