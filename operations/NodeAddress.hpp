/// Addresses of nodes: a path, and steps from its node down to a child node.
///
/// Value types. All functions may be called from any thread.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "operations/Errors.hpp"
#include "operations/Library.hpp"

namespace operations {

/// From a node to one of its child nodes.
struct NodeStep {
    std::u16string name;
    std::size_t position = 0;  ///< among the child nodes of that name, from 1; 0 for the only one

    friend bool operator==(const NodeStep& a, const NodeStep& b) {
        return a.name == b.name && a.position == b.position;
    }
};

struct NodeAddress {
    pm::MetadataPath path;
    // Initialized, so that it may be left out where one is made. NOLINTNEXTLINE(readability-redundant-member-init)
    std::vector<NodeStep> inside = {};  ///< none for the path's own node

    friend bool operator==(const NodeAddress& a, const NodeAddress& b) {
        return a.path == b.path && a.inside == b.inside;
    }
};

/// An error about addresses. How these are written is up to whoever tells it, so the sentence is kept in pieces.
class AddressError : public OperationError {
public:
    /// Either words in UTF-8, or an address, which is to stand in quotes.
    using Piece = std::variant<std::string, NodeAddress>;

    AddressError(ErrorKind kind, std::vector<Piece> pieces);

    const std::vector<Piece>& pieces() const { return pieces_; }

private:
    std::vector<Piece> pieces_;
};

/// A path is missing. What lies beside the place where it should go on may be what was meant.
class MissingPath : public AddressError {
public:
    /// @param step the first step of the path that is missing
    /// @param siblings those that there are in its place
    MissingPath(std::vector<Piece> pieces, const pm::PathElement& step, std::vector<pm::PathElement> siblings)
        : AddressError(ErrorKind::failure, std::move(pieces)), step_(step), siblings_(std::move(siblings)) {}

    const pm::PathElement& step() const { return step_; }
    const std::vector<pm::PathElement>& siblings() const { return siblings_; }

private:
    pm::PathElement step_;
    std::vector<pm::PathElement> siblings_;
};

/// The node that `address` names, null if it is not there.
/// @param node the node of its path, or null
/// @throws AddressError if a step without a position could mean several
const pm::MetadataNode* findNode(const pm::MetadataNode* node, const NodeAddress& address);

/// As that, for one that must be there.
/// @throws AddressError besides, if it is not
const pm::MetadataNode& requireNode(const pm::MetadataNode* node, const NodeAddress& address);

/// Where among `count` siblings the one stands that the step `depth` of `address` leads to.
/// @param nameOf the name of the sibling at a place, from 0
/// @return no value if there is none
/// @throws AddressError if the step has no position and could mean several
std::optional<std::size_t> findChild(std::size_t count,
                                     const std::function<const std::u16string&(std::size_t place)>& nameOf,
                                     const NodeAddress& address, std::size_t depth);

/// What says that the step `depth` of `address` leads nowhere.
AddressError makeMissing(const NodeAddress& address, std::size_t depth);

/// The steps to all child nodes of `node`, in their order.
std::vector<NodeStep> listSteps(const pm::MetadataNode& node);

}  // namespace operations
