/// Which child node of one version of a node is which of another version.
///
/// Child nodes have no addresses. They are paired, always with one of the same name, by what they have:
///
/// 1. Identity: an attribute whose values tell the siblings of the name apart in all versions (Siblings.hpp). Where
///    another such attribute says otherwise, the pair is not certain. If not all siblings have such an attribute, or it
///    is repeated, those that it does not pair are left to the steps that follow. The only sibling of a name in all
///    versions is identified by that.
/// 2. Being equal, for those of which there is one on each side.
/// 3. Unchanged neighbours: between those that are paired and have not moved, equal ones in their order, and then one
///    that is the only one of its name there on both sides, if the two have anything in common and no attribute
///    tells them apart.
/// 4. Position: what is left between the same neighbours, in its order. That is good enough to show a difference, but
///    not certain.
///
/// The literature knows step 2 and 3 as patience difference. They take time in proportion to n log n, and memory in
/// proportion to n, whatever the nodes are like.
#pragma once

#include <cstddef>
#include <vector>

#include "operations/SiblingOrder.hpp"
#include "operations/Siblings.hpp"

namespace operations {

/// How the child nodes of two versions are paired, by the places of those before.
struct Pairing {
    Numbers partners;             ///< the places after, or `none`
    std::vector<bool> isCertain;  ///< false where it rests on position alone who its partner is, or that it has none
};

/// Pairs the child nodes of version `before` with those of version `after`. May be called from any thread.
Pairing pairNodes(const Siblings& siblings, std::size_t before, std::size_t after);

}  // namespace operations
