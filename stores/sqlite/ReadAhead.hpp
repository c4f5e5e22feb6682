/// What a store has read ahead, for those who ask for one path after the other.
///
/// One thread at a time may use an object.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "stores/Names.hpp"
#include "stores/sqlite/PathTable.hpp"

namespace stores::sqlite {

/// Of each depth, some siblings that follow each other. Who asks for siblings in their order is given more and more of
/// them at once; who does not, one. All of it together is bounded.
class ReadAhead {
public:
    /// What is known of one path.
    struct Entry {
        PathElement element;
        RowId id;
        NodeValue node;
        std::int64_t changed;             ///< as in `Row`
        std::optional<bool> hasChildren;  ///< no value if it is not known
    };

    void clear() noexcept { runs_.clear(); }

    /// Null if nothing is known of `path`. Valid until the next operation.
    const Entry* find(const MetadataPath& path);

    /// What `table` says of `path` and perhaps of some siblings behind it.
    /// @param readsMuch whether more is likely to be asked for: then who asks for the first of some siblings, or for
    ///        two of them, is given many at once
    /// @return null if `path` does not exist; valid until the next operation
    const Entry* read(PathTable& table, const MetadataPath& path, bool readsMuch);

private:
    struct Run {
        std::vector<PathElement> path;  // of the first entry
        std::vector<Entry> entries;
        std::size_t last = 0;       // the one that was asked for last
        std::int64_t position = 0;  // of the last entry
        std::size_t size = 0;       // how many to read at most
        RowId parent = rootRow;
    };

    /// Fills `run` with `size` of those that follow its position and the row `last` there, if `leaf` is the first of
    /// them. @return whether it is
    static bool readOn(const PathTable& table, Run& run, RowId last, const PathElement& leaf, std::size_t size);

    std::vector<Run> runs_;  // by the number of steps
};

}  // namespace stores::sqlite
