/// Collects what the subscribers of a write signal return.
#pragma once

#include <memory>
#include <vector>

#include "project/metadata/ChangeGuard.hpp"

namespace project::metadata::detail {

/// A Boost.Signals2 combiner: calls every slot and keeps every result, empty ones included, in the order of the calls.
struct MetadataEventCombiner {
    using result_type = std::vector<std::shared_ptr<ChangeGuard>>;

    template <class Iterator>
    result_type operator()(Iterator first, Iterator last) const {
        result_type guards;
        for (; first != last; ++first)
            guards.push_back(*first);
        return guards;
    }
};

}  // namespace project::metadata::detail
