#include "operations/FileOutput.hpp"

#include <sys/stat.h>

#include <string>

#include "operations/Errors.hpp"
#include "store_support/Disk.hpp"
#include "store_support/FileReplacement.hpp"

namespace operations {

void requireWritable(const host::Path& file, Existing existing) {
    const std::string name = file.accessName();
    struct stat status {};
    const bool leadsNowhere = stat(name.c_str(), &status) != 0;
    // A link that leads nowhere is in the way of a new file, too.
    if (leadsNowhere && lstat(name.c_str(), &status) != 0)
        return;
    if (!leadsNowhere && !S_ISREG(status.st_mode)) {
        throw OperationError(ErrorKind::failure,
                             quoted(file) + (S_ISDIR(status.st_mode) ? " is a folder" : " is no ordinary file") +
                                 ", so no other file can take its place");
    }
    if (existing == Existing::keep) {
        throw OperationError(ErrorKind::failure, "The file " + quoted(file) +
                                                     " exists already and is left as it is; --replace replaces it");
    }
}

void writeFile(const host::Path& file, Existing existing, const std::function<void(const host::Path& staged)>& write) {
    if (existing == Existing::replace)
        store_support::replaceFile(file, write);
    else
        store_support::makeFile(file, write);
}

void replaceFile(const host::Path& file, std::string_view content) {
    store_support::replaceFile(file, content);
}

void giveToOwnerOfFolder(const host::Path& file) {
    store_support::giveToOwnerOfFolder(file);
}

}  // namespace operations
