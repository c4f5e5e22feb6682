/// `setNodes` and `setPaths` as one change, for stores that would write everything twice otherwise.
#pragma once

#include "project/Export.hpp"
#include "project/metadata/MetadataManager.hpp"

namespace project::metadata {

/// What a `MetadataManager` may implement besides. A `WholeContentWrite` asks for it with a `dynamic_cast`.
class PROJECT_METADATA_EXPORT WholeContentWriter {
public:
    virtual ~WholeContentWriter() = default;

    /// From now on, up to the end of the next `setPaths`, what `setNodes` is given is put aside instead of stored;
    /// `setPaths` then stores what of it belongs to its paths, in one change with them, or refuses all of it. Until
    /// then the store may answer as if it were not there, and nobody may change the nodes. `setPaths` throws
    /// `MetadataWriteFailure` if what it would replace or remove was changed in between, and may do so if anything was.
    virtual void beginContent() noexcept = 0;

    /// What was put aside and not stored is dropped. Without effect after `setPaths`.
    virtual void endContent() noexcept = 0;

protected:
    WholeContentWriter() = default;
    WholeContentWriter(const WholeContentWriter&) = default;
    WholeContentWriter& operator=(const WholeContentWriter&) = default;
};

/// As long as it lives, a store may take the next `setNodes` with the `setPaths` that follows for one change. Whoever
/// makes one calls both. Without effect on stores that are no `WholeContentWriter`. To be used by the thread that uses
/// the store, and destroyed before that.
class WholeContentWrite {
public:
    explicit WholeContentWrite(MetadataManager& store) : writer_(dynamic_cast<WholeContentWriter*>(&store)) {
        if (writer_)
            writer_->beginContent();
    }
    ~WholeContentWrite() {
        if (writer_)
            writer_->endContent();
    }

    WholeContentWrite(const WholeContentWrite&) = delete;
    WholeContentWrite& operator=(const WholeContentWrite&) = delete;

private:
    WholeContentWriter* writer_;
};

}  // namespace project::metadata
