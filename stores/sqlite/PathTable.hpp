/// The tables of the database, with the statements that read and write them. The schema is written down at the top
/// of PathTable.cpp.
///
/// No operation opens a transaction or looks at who else has changed a row. All throw `SqliteError`, and
/// `MetadataReadFailure` naming the file for rows that no store writes. One thread at a time may use an object.
///
/// The file may come from anywhere. What its indices say counts only where the rows say it too, so each row is at one
/// place in the tree, and no walk through the tree goes round in circles.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "store_support/SeenChanges.hpp"
#include "stores/Names.hpp"
#include "stores/sqlite/Sqlite.hpp"

namespace stores::sqlite {

using RowId = std::int64_t;

/// What a store knows of the changes of others.
using SeenChanges = store_support::SeenChanges<RowId>;

/// The row of the root path.
constexpr RowId rootRow = 0;

/// What the row of a path says of it.
struct Row {
    NodeValue node;
    std::int64_t changed;   ///< the batch that has added the path or changed its node last
    std::int64_t position;  ///< among its siblings
};

/// A child with its node.
struct FullRow {
    RowId id;
    PathElement element;
    std::int64_t position;
    NodeValue node;
    std::int64_t changed;  ///< as in `Row`
    bool hasChildren;
};

struct ChildRow {
    RowId id;
    PathElement element;
    std::int64_t position;
    bool hasNode;
    std::int64_t changed;  ///< as in `Row`
};

/// A row that cannot be read as a child.
struct DamagedRow {
    RowId id;
    std::int64_t changed;  ///< as in `Row`
};

/// The row `id` of `path`, as far as that can be read, and what is wrong with it.
std::u16string describe(const project::metadata::MetadataPath& path, RowId id);
std::u16string describeBadStep(const project::metadata::MetadataPath& path, RowId id);
std::u16string describeBadNode(const project::metadata::MetadataPath& path, RowId id);

/// Makes the tables in an empty database, with the root path.
void createTables(sqlite3& connection);

/// @return the version of the schema, as `getSchemaVersion`
/// @throws MetadataReadFailure naming `file`, if the database is not one with these tables, or if
///         there is anything in its schema besides
std::int64_t requireTables(sqlite3& connection, const Path& file);

/// A number that changes with the schema.
std::int64_t getSchemaVersion(sqlite3& connection);

class PathTable {
public:
    /// @param connection must outlive the object; its tables have been checked
    /// @param file the file of the database, for errors
    PathTable(sqlite3& connection, Path file);

    const Path& getFile() const noexcept { return file_; }
    sqlite3& getConnection() const noexcept { return connection_; }

    /// Forgets the rows of paths that were found. To be called whenever somebody else may have written since.
    void forgetRows() { walk_.clear(); }

    /// The number of the last batch.
    std::int64_t getBatch() const;
    void setBatch(std::int64_t batch);

    /// No value if the path does not exist.
    std::optional<RowId> find(const MetadataPath& path);

    /// The row above the one that `find` has found last; the root path's for itself.
    RowId findParent() const noexcept;

    /// Adds `path`, which does not exist, with `node`, and its missing ancestors without, each as the last child
    /// of its parent.
    void add(const MetadataPath& path, const NodeValue& node, std::int64_t batch);

    RowId insert(RowId parent, const PathElement& element, std::int64_t position, const NodeValue& node,
                 std::int64_t batch);

    Row getRow(RowId id) const;
    void setNode(RowId id, const NodeValue& node, std::int64_t batch);
    void setPosition(RowId id, std::int64_t position);

    /// Gives the row `id` of an existing path another last step.
    void setElement(RowId id, const PathElement& element, std::int64_t batch);

    bool hasChildren(RowId parent) const;

    /// In their order. Those whose type or location is no text, which is damage, are left out.
    /// @param leftOut gets them, unless it is null
    /// @throws project::metadata::MetadataReadFailure if a child is there twice
    std::vector<ChildRow> getChildren(RowId parent, std::vector<DamagedRow>* leftOut = nullptr) const;

    /// Calls `visit` for the children after the one with the given position and row, in their order, for as long as
    /// that returns true and nothing damaged is met.
    void visitChildrenAfter(RowId parent, std::int64_t position, RowId id,
                            const std::function<bool(FullRow row)>& visit) const;

    /// Calls `visit` for the row `id` and all rows below it, in no particular order.
    /// @throws MetadataReadFailure for those that `getChildren` leaves out
    void visitBelow(RowId id, const std::function<void(RowId id, const Row& row)>& visit) const;

    /// Removes all rows below `id`, and that row itself unless it is the root path's.
    void removeBelow(RowId id);

    /// The path of an existing row; what cannot be read of it stands as "?".
    MetadataPath getPath(RowId id) const;

private:
    [[noreturn]] void raiseTwice(RowId id) const;
    [[noreturn]] void raiseUnsound() const;

    /// To be called after a change of one row.
    void requireOneRow() const;

    /// 0 if there are no children.
    std::int64_t getLastPosition(RowId parent) const;

    std::optional<RowId> findChild(RowId parent, const PathElement& element) const;

    sqlite3& connection_;
    Path file_;
    Statement getBatch_;
    Statement setBatch_;
    Statement findChild_;
    Statement getLastPosition_;
    Statement insert_;
    Statement getRow_;
    Statement setNode_;
    Statement setPosition_;
    Statement setElement_;
    Statement getChildren_;
    Statement getChildrenAfter_;
    Statement getBelow_;
    Statement removeBelow_;
    Statement getStep_;
    std::vector<std::pair<PathElement, RowId>> walk_;  // the last path, as far as it exists
};

}  // namespace stores::sqlite
