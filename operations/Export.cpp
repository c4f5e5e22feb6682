#include "operations/Export.hpp"

#include "host/FileSystem.hpp"
#include "host/TempDirGuard.hpp"
#include "operations/DryRun.hpp"
#include "operations/Errors.hpp"
#include "operations/MetadataTree.hpp"
#include "project/metadata/SingleFileExport.hpp"

namespace operations {

std::vector<pm::MetadataDamage> exportMetadata(const pm::MetadataManager& store, const pm::MetadataPath& top,
                                               const host::Path& file, Existing existing, bool isDryRun,
                                               Observer& observer) {
    const auto progress = observer.start("Exporting");
    const auto format = std::dynamic_pointer_cast<const pm::MetadataFileFormat>(pm::getSingleFileFactory());
    if (!format)
        throw OperationError(ErrorKind::failure, "There is no store that keeps everything in one file");
    std::vector<pm::MetadataDamage> leftOut;
    const auto tell = [&](pm::PathSink& sink) {
        leftOut.clear();  // it may be told again
        tellSubtree(store, top, *progress, &leftOut, sink);
    };
    const auto write = [&](const host::Path& place) { format->writePaths(tell, place); };
    if (isDryRun) {
        requireFeasibleOutput(file);
        const host::TempDirGuard scratch(host::FileSystem::temp_directory_name().text(), u"", u"");
        write(host::Path(scratch.getDirectoryName()) / u"exported");
    } else if (existing == Existing::replace) {
        write(file);
    } else {
        writeFile(file, existing, write);
    }
    return leftOut;
}

}  // namespace operations
