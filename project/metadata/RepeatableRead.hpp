/// Many questions to a store as one reading, for stores that answer faster then.
#pragma once

#include "project/Export.hpp"
#include "project/metadata/MetadataManager.hpp"

namespace project::metadata {

/// What a `MetadataManager` may implement besides. A `RepeatableRead` asks for it with a `dynamic_cast`.
class PROJECT_METADATA_EXPORT RepeatableReader {
public:
    virtual ~RepeatableReader() = default;

    /// From now on, until `endReading` was called as often as this, what an operation answers may be what it would have
    /// answered at any moment since: what has been looked at once need not be looked at again. What is changed through
    /// this store itself shows at once, and changes are made of what is there then, as ever.
    virtual void beginReading() const noexcept = 0;
    virtual void endReading() const noexcept = 0;

protected:
    RepeatableReader() = default;
    RepeatableReader(const RepeatableReader&) = default;
    RepeatableReader& operator=(const RepeatableReader&) = default;
};

/// As long as it lives, a store need not look again at what it has looked at since. Without effect on stores that are
/// no `RepeatableReader`. To be used by the thread that uses the store, and destroyed before that.
class RepeatableRead {
public:
    explicit RepeatableRead(const MetadataManager& store) : reader_(dynamic_cast<const RepeatableReader*>(&store)) {
        if (reader_)
            reader_->beginReading();
    }
    ~RepeatableRead() {
        if (reader_)
            reader_->endReading();
    }

    RepeatableRead(const RepeatableRead&) = delete;
    RepeatableRead& operator=(const RepeatableRead&) = delete;

private:
    const RepeatableReader* reader_;
};

}  // namespace project::metadata
