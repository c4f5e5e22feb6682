/// Which nodes the user of a store takes to be there, so that none that somebody else has removed comes back unseen.
///
/// One thread at a time may use an object.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "store_support/Library.hpp"

namespace store_support {

/// What is wrong with setting a node that is known to have been there.
constexpr const char16_t* removedUnseen = u"has been removed by somebody else since it was read; read it again first";

/// The ancestor of `path` that has `depth` steps, or `path` itself.
MetadataPath getAncestor(const MetadataPath& path, std::size_t depth);

/// He does since he was told that there is a node, or put it there, until he is told that there is none, or removes it
/// himself. Paths are told apart by 64 bits that follow from their steps.
class ToldNodes {
public:
    /// @param limit about how many paths to remember. When there are more, all are forgotten, and a node is taken to be
    ///        wherever nothing is known.
    explicit ToldNodes(std::size_t limit = std::numeric_limits<std::size_t>::max()) : limit_(limit) {}

    void tell(const MetadataPath& path, bool hasNode);

    /// Whether a node is taken to be at the ancestor of `path` that has `depth` steps, or at `path` itself.
    bool isExpected(const MetadataPath& path, std::size_t depth) const noexcept;
    bool isExpected(const MetadataPath& path) const noexcept { return isExpected(path, path.getPath().size()); }

    /// What is wrong with setting that node, where it is expected and not there.
    const char16_t* explainAbsence(const MetadataPath& path, std::size_t depth) const;

    /// Whether no node is taken to be anywhere.
    bool isEmpty() const noexcept { return !hasTold_ && forgotten_ == 0; }

    /// What a change by the user himself makes of it. Noted beforehand as far as that needs memory, so that a change
    /// that has succeeded cannot fail for the lack of it; without effect until `done` is called.
    class Change {
    public:
        /// One that makes nothing of it.
        explicit Change(ToldNodes& told) : told_(&told) {}

        /// Makes it include `later`, which comes after it and removes nothing.
        void add(const Change& later) { set_.insert(set_.end(), later.set_.begin(), later.set_.end()); }

        void done() noexcept;

    private:
        friend class ToldNodes;

        ToldNodes* told_;
        std::vector<std::uint64_t> removed_;  // with what is below
        std::vector<std::pair<std::uint64_t, bool>> set_;
    };

    Change setting(const MetadataPath& path, bool hasNode);

    /// @param nodes pairs of a path and its node, of which the last one for a path counts
    template <class Nodes = std::map<MetadataPath, std::shared_ptr<MetadataNode>>>
    Change setting(const Nodes& nodes) {
        Change change(*this);
        change.set_.reserve(nodes.size());
        for (const auto& [path, node] : nodes) {
            change.set_.emplace_back(getKey(path), node != nullptr);
            use(change.set_.back().first);
        }
        return change;
    }

    Change removing(const std::vector<MetadataPath>& paths);
    Change renaming(const MetadataPath& path, const MetadataPath& target);

    /// `paths` and their ancestors become all that there is; the root path keeps its node only if it is one of them.
    Change keeping(const std::vector<MetadataPath>& paths);

private:
    using Key = std::uint64_t;

    /// Moments are counted by the user's changes; 0 is before all of them.
    struct Known {
        Key key;                // `noKey` where nothing is
        std::uint64_t removed;  // when, with what is below
        std::uint64_t told;     // when, twice that, and one more if it was told that there is a node

        void tell(std::uint64_t moment, bool hasNode) noexcept { told = 2 * moment + (hasNode ? 1 : 0); }
    };

    static Key getKey(const MetadataPath& path);

    /// Where `key` is in the table, or where it would be.
    std::size_t findPlace(Key key) const noexcept;

    /// That of `key`; null if there is none.
    const Known* find(Key key) const noexcept;
    Known* find(Key key) noexcept { return const_cast<Known*>(std::as_const(*this).find(key)); }

    /// That of `key`, in which nothing is changed if it is there. Valid until the next use.
    Known& use(Key key);

    std::size_t limit_;
    // Each is at the place that its key says or the next that was free: one is wanted for each path that is read, and
    // what the processor fetches from memory for that counts. The size is a power of two, a quarter or more is free.
    std::vector<Known> known_;
    std::size_t size_ = 0;  // how many there are
    std::uint64_t now_ = 1;
    std::uint64_t forgotten_ = 0;  // when that happened last; 0 for never
    bool hasTold_ = false;         // whether there ever was a node that was told of or put there
};

}  // namespace store_support
