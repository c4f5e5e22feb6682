/// What finds the number that somebody has given to a path by that of its parent and by its last step: no texts of
/// whole paths are made, hashed or compared.
#pragma once

#include <cstddef>
#include <functional>
#include <string_view>
#include <unordered_map>

#include "store_support/Library.hpp"

namespace store_support {

/// A child of the path with the number `parent`. `element` must outlive it.
struct ChildStep {
    std::size_t parent;
    const PathElement* element;

    friend bool operator==(const ChildStep& a, const ChildStep& b) noexcept {
        return a.parent == b.parent && *a.element == *b.element;
    }
};

struct ChildStepHash {
    // Not `noexcept`, so that maps of the standard library keep the hashes: making one again takes two texts.
    std::size_t operator()(const ChildStep& step) const {
        const std::hash<std::u16string_view> hash;
        constexpr std::size_t factor = 1099511628211U;  // of the FNV hash
        return ((step.parent * factor) ^ hash(step.element->getType())) * factor ^ hash(step.element->getLocation());
    }
};

/// The numbers of paths that are no root path.
using ChildNumbers = std::unordered_map<ChildStep, std::size_t, ChildStepHash>;

}  // namespace store_support
