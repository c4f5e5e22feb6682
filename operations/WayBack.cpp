#include "operations/WayBack.hpp"

#include <algorithm>
#include <exception>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/Interruption.hpp"
#include "operations/NodeAddress.hpp"
#include "store_support/EqualTrees.hpp"

namespace operations {

namespace {

class WayBack {
public:
    using NodeBefore = std::function<NodePtr(const pm::MetadataPath&)>;

    WayBack(pm::MetadataManager& store, const StoreChange& change, const NodeBefore& nodeBefore)
        : store_(store), change_(change), nodeBefore_(nodeBefore), wanted_(change.nodes.begin(), change.nodes.end()) {}

    /// Whether the last batch has been made, although it has failed: after a failed flush, the store may have completed
    /// it. Then there is only one copy of what was moved. What was removed may also have been removed by somebody else.
    bool isDone() const {
        const auto isThere = [&](const pm::MetadataPath& path) { return store_.hasPath(path); };
        return !change_.removed.empty() && std::none_of(change_.removed.begin(), change_.removed.end(), isThere) &&
               std::all_of(change_.added.begin(), change_.added.end(), isThere);
    }

    void go() {
        StoreChange back;
        for (const pm::MetadataPath& path : findMade(change_.updated))
            back.nodes.emplace_back(path, nodeBefore_(path));
        back.gone = findMade(change_.added);
        applyChange(store_, back);
    }

    /// Which paths are not as they were, for an error sentence; no pieces if all are.
    std::vector<AddressError::Piece> describeRest() const {
        std::vector<AddressError::Piece> pieces;
        describe("another node is at ", findMade(change_.updated), pieces);
        describe("there is now ", findMade(change_.added), pieces);
        return pieces;
    }

private:
    /// Those of `paths` that are now as the change wants them. What others have made of one meanwhile is theirs.
    std::vector<pm::MetadataPath> findMade(const std::vector<pm::MetadataPath>& paths) const {
        std::vector<pm::MetadataPath> made;
        std::copy_if(paths.begin(), paths.end(), std::back_inserter(made), [&](const pm::MetadataPath& path) {
            const auto wanted = wanted_.find(path);
            return store_.hasPath(path) &&
                   store_support::equalTrees(store_.getNode(path).get(),
                                             wanted == wanted_.end() ? nullptr : wanted->second.get());
        });
        return made;
    }

    static void describe(const std::string& what, const std::vector<pm::MetadataPath>& paths,
                         std::vector<AddressError::Piece>& pieces) {
        for (const pm::MetadataPath& path : paths) {
            pieces.emplace_back(&path == &paths.front() ? (pieces.empty() ? "" : "; ") + what : std::string(", "));
            pieces.emplace_back(NodeAddress{path});
        }
    }

    pm::MetadataManager& store_;
    const StoreChange& change_;
    const NodeBefore& nodeBefore_;
    std::map<pm::MetadataPath, NodePtr, BySteps> wanted_;
};

/// Says what is not as it was, if anything is; to be called while the reason is handled.
void requireNothingLeft(const WayBack& wayBack) {
    std::vector<AddressError::Piece> rest;
    try {
        rest = wayBack.describeRest();
    } catch (const std::exception&) {
        rest = {"how far it went cannot be read any more"};
    }
    if (rest.empty())
        return;
    rest.insert(rest.begin(), "The change has been made in part, and cannot be taken back: ");
    std::throw_with_nested(AddressError(ErrorKind::failure, std::move(rest)));
}

}  // namespace

void applyOrTakeBack(pm::MetadataManager& store, const StoreChange& change,
                     const std::function<NodePtr(const pm::MetadataPath&)>& nodeBefore) {
    try {
        applyChange(store, change);
    } catch (const host::InterruptedException&) {
        throw;
    } catch (...) {
        // The batch that has failed is taken back, or may be completed by the next reader, if a flush has failed.
        WayBack wayBack(store, change, nodeBefore);
        bool isDone = false;
        bool isBack = false;
        try {
            isDone = wayBack.isDone();
            if (!isDone)
                wayBack.go();
            isBack = true;
        } catch (const std::exception&) {
            // What is left is told.
        }
        if (isDone) {
            std::throw_with_nested(OperationError(
                ErrorKind::failure, "The change has been made, but it may be lost if the machine fails now"));
        }
        if (!isBack)
            requireNothingLeft(wayBack);
        throw;
    }
}

}  // namespace operations
