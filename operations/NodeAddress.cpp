#include "operations/NodeAddress.hpp"

#include <map>

namespace operations {

namespace {

/// For readers of `what()`; the command writes addresses otherwise.
std::string describe(const std::vector<AddressError::Piece>& pieces) {
    std::string text;
    for (const AddressError::Piece& piece : pieces) {
        if (const auto* const words = std::get_if<std::string>(&piece)) {
            text += *words;
            continue;
        }
        const auto& address = std::get<NodeAddress>(piece);
        text += '"' + host::toUtf8(address.path.string());
        for (const NodeStep& step : address.inside)
            text +=
                '#' + host::toUtf8(step.name) + (step.position == 0 ? "" : '[' + std::to_string(step.position) + ']');
        text += '"';
    }
    return text;
}

/// `address` up to its step `depth`.
NodeAddress trim(const NodeAddress& address, std::size_t depth) {
    return {address.path, {address.inside.begin(), address.inside.begin() + static_cast<std::ptrdiff_t>(depth) + 1}};
}

/// The child node of `node` that the step `depth` of `address` leads to, or null.
const pm::MetadataNode* findChildNode(const pm::MetadataNode& node, const NodeAddress& address, std::size_t depth) {
    const auto& children = node.getChildNodes();
    const auto place = findChild(
        children.size(), [&](std::size_t i) -> const std::u16string& { return children[i]->getName(); }, address,
        depth);
    return place ? children[*place].get() : nullptr;
}

}  // namespace

AddressError::AddressError(ErrorKind kind, std::vector<Piece> pieces)
    : OperationError(kind, describe(pieces)), pieces_(std::move(pieces)) {}

const pm::MetadataNode* findNode(const pm::MetadataNode* node, const NodeAddress& address) {
    for (std::size_t depth = 0; node && depth < address.inside.size(); ++depth)
        node = findChildNode(*node, address, depth);
    return node;
}

const pm::MetadataNode& requireNode(const pm::MetadataNode* node, const NodeAddress& address) {
    if (!node)
        throw AddressError(ErrorKind::failure, {"There is no node at ", NodeAddress{address.path}, ", only a branch"});
    for (std::size_t depth = 0; depth < address.inside.size(); ++depth) {
        node = findChildNode(*node, address, depth);
        if (!node)
            throw makeMissing(address, depth);
    }
    return *node;
}

std::optional<std::size_t> findChild(std::size_t count,
                                     const std::function<const std::u16string&(std::size_t place)>& nameOf,
                                     const NodeAddress& address, std::size_t depth) {
    const NodeStep& step = address.inside[depth];
    std::optional<std::size_t> found;
    std::size_t seen = 0;
    for (std::size_t place = 0; place < count; ++place) {
        if (nameOf(place) != step.name)
            continue;
        if (++seen == step.position)
            return place;
        if (step.position == 0)
            found = place;
    }
    if (found && seen > 1) {
        NodeAddress first = trim(address, depth);
        first.inside.back().position = 1;
        throw AddressError(
            ErrorKind::failure,
            {trim(address, depth), " could be " + std::to_string(seen) + " child nodes; the first of them is ",
             std::move(first)});
    }
    return found;
}

AddressError makeMissing(const NodeAddress& address, std::size_t depth) {
    NodeAddress above = trim(address, depth);
    above.inside.pop_back();
    return {ErrorKind::failure,
            {"There is no child node ", trim(address, depth), "; the nearest node above it is at ", std::move(above)}};
}

std::vector<NodeStep> listSteps(const pm::MetadataNode& node) {
    std::map<std::u16string_view, std::size_t> counts;
    for (const auto& child : node.getChildNodes())
        ++counts[child->getName()];
    std::map<std::u16string_view, std::size_t> seen;
    std::vector<NodeStep> steps;
    for (const auto& child : node.getChildNodes()) {
        const std::u16string& name = child->getName();
        steps.push_back({name, counts[name] == 1 ? 0 : ++seen[name]});
    }
    return steps;
}

}  // namespace operations
