/// A change to the tables, or the question whether there would be one.
///
/// One thread at a time may use an object.
#pragma once

#include <cstdint>
#include <vector>

#include "stores/Names.hpp"
#include "stores/sqlite/PathTable.hpp"

namespace stores::sqlite {

/// Each operation returns whether it changes something. One that only looks stops at the first sign of that. What they
/// are called with can be stored.
///
/// @throws project::metadata::MetadataWriteFailure naming the file and the path, if a node would be replaced or a path
///         removed that somebody else has changed unseen, or that is damaged, or if a path would be added or a node set
///         where somebody else has removed a node unseen; as `PathTable`
class PathEdit {
public:
    enum class Mode { look, write };

    /// @param batch the number that the rows changed by it get
    PathEdit(PathTable& table, const SeenChanges& seen, Mode mode, std::int64_t batch)
        : table_(table), seen_(seen), mode_(mode), batch_(batch) {}

    bool isLooking() const noexcept { return mode_ == Mode::look; }

    bool add(const MetadataPath& path);
    bool setNode(const MetadataPath& path, const NodeValue& node);
    bool removeNode(const MetadataPath& path);
    bool remove(const MetadataPath& path);

    /// As `PathRenamer` says.
    bool rename(const MetadataPath& path, const PathElement& element);

    /// Makes `paths` and their ancestors the whole content, in that order.
    bool arrange(const std::vector<MetadataPath>& paths);

private:
    bool replaceNode(RowId id, const NodeValue& node, const MetadataPath& path);

    /// Removes what is below the row, and the row itself unless it is the root path's.
    void removeBelow(RowId id);

    void requireReplaceable(RowId id, const Row& row) const;

    /// That somebody else has not removed a node unseen that was at `path`, or at one of its ancestors that do not
    /// exist any more.
    void requireNothingGone(const MetadataPath& path) const;
    void requireNotGone(const MetadataPath& path, std::size_t depth) const;

    [[noreturn]] void refuse(const MetadataPath& path, const std::u16string& problem) const;

    PathTable& table_;
    const SeenChanges& seen_;
    Mode mode_;
    std::int64_t batch_;
};

}  // namespace stores::sqlite
