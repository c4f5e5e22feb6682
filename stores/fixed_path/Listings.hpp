/// What a reading has found in the folders of a "fixedPath" store, so that it need not look again.
///
/// One thread at a time may use an object.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/Path.hpp"
#include "stores/fixed_path/PathFile.hpp"
#include "stores/fixed_path/PathFileCache.hpp"

namespace stores::fixed_path {

/// A path directly in a folder.
struct Child {
    PathFilePtr content;
    bool hasFolder;  ///< whether there is a folder for paths below it
};

/// What is in a folder for paths.
struct Listing {
    std::vector<Child> children;
    bool isAll = true;  ///< whether all files and folders of paths that are there belong to one of them
};

/// It knows the versions of files; what these say is in the cache, or is not known any more.
class Listings {
public:
    void add(const host::Path& folder, const Listing& listing);

    /// The path `element` in `folder`; no value if it is not known.
    std::optional<Child> find(const host::Path& folder, const project::metadata::PathElement& element,
                              PathFileCache& cache) const;

    /// What `add` was told of `folder`, in another order; no value if that is not known any more.
    std::optional<Listing> find(const host::Path& folder, PathFileCache& cache) const;

    void clear() noexcept {
        folders_.clear();
        last_ = nullptr;
    }

private:
    // As small as can be, since there is one for each path.
    struct Entry {
        std::uint64_t inode;
        std::int64_t changed;
        std::uint32_t hash;  // of the element
        bool hasFolder;
    };

    struct Entries {
        std::vector<Entry> entries;  // ordered by their hashes
        bool isAll;
    };

    using Folders = std::unordered_map<std::u16string, Entries>;  // by the folder's text

    /// Null if nothing is known of `folder`.
    const Entries* find(const host::Path& folder) const;

    Folders folders_;
    mutable const Folders::value_type* last_ = nullptr;  // what was found last, which mostly is what is wanted next
};

}  // namespace stores::fixed_path
