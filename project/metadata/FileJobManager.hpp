/// Runs batches of file jobs and tells subscribers before and after each batch.
///
/// A host that wants to follow the changes of all stores registers one of these as a service; stores use it when there
/// is one.
#pragma once

#include <memory>
#include <vector>

#include <boost/signals2/signal.hpp>

#include "host/Path.hpp"
#include "project/Export.hpp"
#include "project/metadata/ChangeGuard.hpp"
#include "project/metadata/FileJob.hpp"
#include "project/metadata/detail/MetadataEventCombiner.hpp"

namespace project::metadata {

/// Subscribing is safe from any thread, also while a batch runs. Batches run on the calling thread; several at a time
/// are not kept apart.
class PROJECT_METADATA_EXPORT FileJobManager {
public:
    /// A slot takes the new files, the modified files and the deleted files of a batch, and returns a guard that is
    /// held until the batch is over, or an empty pointer.
    using WriteSignal = boost::signals2::signal<std::shared_ptr<ChangeGuard>(const std::vector<host::Path>&,
                                                                             const std::vector<host::Path>&,
                                                                             const std::vector<host::Path>&),
                                                detail::MetadataEventCombiner>;

    FileJobManager();
    ~FileJobManager();

    /// Calls `slot` before every batch, after the slots connected so far. @return the connection, to end that with
    boost::signals2::connection onPreWrite(const WriteSignal::slot_type& slot);

    /// Calls `slot` after every batch that succeeded. @return as `onPreWrite`
    boost::signals2::connection onPostWrite(const WriteSignal::slot_type& slot);

    /// Runs `jobs` in order, between the two notifications. Files to write count as new or modified by whether they
    /// exist before the first job runs. At the end, also when an exception passes, the guards of the second
    /// notification are released front to back, then those of the first.
    /// @throws whatever a slot or a job throws; what comes after it does not happen, and nothing is undone
    void process(std::vector<FileJob> jobs);

private:
    WriteSignal preWrite_;
    WriteSignal postWrite_;
};

}  // namespace project::metadata
