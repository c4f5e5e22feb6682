/// What a store has read of a project ahead of being asked, so that reading everything takes few round trips.
///
/// One thread at a time may use an object.
#pragma once

#include <cstddef>
#include <deque>
#include <list>
#include <optional>
#include <unordered_map>
#include <vector>

#include "stores/postgresql/ProjectTable.hpp"

namespace stores::postgresql {

/// Rows and lists of children as one batch left them. Whoever asks for the children of a path is likely to ask for
/// their nodes next, and for the children of the path after it. So a list comes with the nodes, and with the lists of
/// paths that were listed after that one: twice as many each time as the time before, as long as they are asked for
/// then, and fewer otherwise. Of what was read longest ago, as much is forgotten as exceeds a limit. Whoever then asks
/// for one row after the other, in the order of the lists, gets more and more of them at once too. Which paths are
/// likely to be asked for outlives batches, since somebody else may be at work all the time.
class ReadAhead {
public:
    /// The batch of which everything is.
    std::int64_t getBatch() const noexcept { return batch_; }

    /// Null if the row is not there, or is known to be none: then `isKnown` tells.
    const Row* find(const PathId& id) const;
    bool isKnown(const PathId& id) const { return rows_.count(id) > 0; }

    /// The children of `parent`; no value if the list is not there. The rows stay until something is added.
    std::optional<std::vector<const Row*>> findChildren(const PathId& parent);

    /// What to ask for where the row of a path is wanted, and where the children of `parent` are.
    Question getRowQuestion(const PathId& id);
    Question getQuestion(const PathId& parent);

    /// Keeps the answer to one of these.
    void add(const Question& question, Answer answer);

    /// Forgets everything.
    void clear();

private:
    /// What came with one answer. What comes again belongs to the last one.
    struct Lot {
        std::vector<PathId> rows;
        std::vector<PathId> lists;
        std::size_t bytes = 0;
    };

    template <class Value>
    struct Kept {
        Value value;
        std::size_t lot;  ///< the number of its lot
    };

    /// The paths that were listed after this one, as far as nobody has asked for their children.
    std::list<PathId>::const_iterator findNext(const PathId& id) const;

    /// Whether the last answer had so many bytes that less is to be asked for at once.
    bool wasLarge() const;

    /// Forgets what the rows were.
    void forgetRows();
    void forgetOldest();

    /// The path has been asked for, so it is not likely to be next.
    void takeOut(const PathId& id);

    std::int64_t batch_ = 0;
    std::unordered_map<PathId, Kept<std::optional<Row>>> rows_;  // no value for what does not exist
    std::unordered_map<PathId, Kept<std::vector<PathId>>> lists_;
    std::deque<Lot> lots_;       // the oldest first
    std::size_t oldestLot_ = 0;  // its number; the others follow
    std::size_t bytes_ = 0;
    std::list<PathId> listed_;  // the paths that a list has had and whose children nobody has asked for, in their order
    std::unordered_map<PathId, std::list<PathId>::iterator> places_;  // in `listed_`
    std::size_t ahead_ = 1;                                           // how many lists came with the last question
    std::size_t used_ = 0;                                            // how many were asked for since, and were there
    std::size_t rowsAhead_ = 1;                                       // how many rows came with the last question
    std::optional<PathId> nextRow_;                                   // the first one after those
};

}  // namespace stores::postgresql
