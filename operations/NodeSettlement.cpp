#include "operations/NodeSettlement.hpp"

#include <algorithm>
#include <map>
#include <utility>
#include <vector>

#include "operations/Errors.hpp"
#include "operations/NodeEdit.hpp"
#include "operations/NodeMerge.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"

namespace operations {

namespace {

using pm::MetadataNode;

class Settling {
public:
    explicit Settling(MergeSide side) : side_(side), sideKey_(side == MergeSide::ours ? u"Ours" : u"Theirs") {}

    /// @return null if the side has removed the node, or if nothing is in it that was made for a mark
    std::unique_ptr<MetadataNode> settle(const MetadataNode& node, bool isPathsOwn) {
        AttributeChanges changes;
        std::u16string name = node.getName();
        bool isMadeForMark = false;
        for (const auto& mark : node.getChildNodes()) {
            if (!isMark(*mark))
                continue;
            ++count;
            isMadeForMark = isMadeForMark || !mark->get(madeForMarkKey).empty();
            const std::u16string& what = mark->get(u"What");
            if (what == nameOfConflict(Conflict::What::attribute)) {
                changes[mark->get(u"Key")] = findValue(*mark);
            } else if (what == nameOfConflict(Conflict::What::name)) {
                name = findValue(*mark).value_or(name);
            } else if (what == nameOfConflict(Conflict::What::removed)) {
                if ((mark->get(u"RemovedBy") == u"ours") != (side_ == MergeSide::ours))
                    continue;
                if (isPathsOwn) {
                    refuse("this side has removed the node, or the path; \"project-metadata remove\" removes either");
                }
                return nullptr;
            } else if (what == nameOfConflict(Conflict::What::order)) {
                if (side_ == MergeSide::theirs)
                    refuse("the order of theirs is not known any more; the one that is there is that of ours");
            } else {
                refuse(what == nameOfConflict(Conflict::What::children)
                           ? "it is not known which child nodes \"" + host::toUtf8(mark->get(u"Name")) +
                                 "\" are those of which side; remove what is too many, and then the mark"
                           : "there are versions of different paths; remove the mark when all is in its place");
            }
        }
        auto settled = copy(node, name, changes);
        const bool isEmpty = settled->getAttributeKeys().empty() && settled->getChildNodes().empty();
        return isMadeForMark && isEmpty ? nullptr : std::move(settled);
    }

    std::size_t count = 0;

private:
    [[noreturn]] static void refuse(const std::string& reason) {
        throw OperationError(ErrorKind::failure, "A conflict cannot be settled by taking one side: " + reason);
    }

    static bool isMark(const MetadataNode& node) {
        return node.getName() == conflictName && !node.get(u"What").empty();
    }

    /// What the side had; no value if it had nothing.
    Text findValue(const MetadataNode& mark) const {
        const std::vector<std::u16string> keys = mark.getAttributeKeys();
        return std::binary_search(keys.begin(), keys.end(), sideKey_) ? Text(mark.get(sideKey_)) : std::nullopt;
    }

    std::unique_ptr<MetadataNode> copy(const MetadataNode& node, const std::u16string& name,
                                       const AttributeChanges& changes) {
        std::map<std::u16string, std::u16string> attributes;
        for (const std::u16string& key : node.getAttributeKeys())
            attributes[key] = node.get(key);
        for (const auto& [key, value] : changes) {
            attributes.erase(key);
            if (value)
                attributes[key] = *value;
        }
        auto settled = std::make_unique<pm::MetadataNodeSpecification>(name);
        for (const auto& [key, value] : attributes)
            settled->put(key, value);
        for (const auto& child : node.getChildNodes()) {
            if (isMark(*child))
                continue;
            if (const auto settledChild = settle(*child, false))
                settled->createChildNode(settledChild->getName()).copy(*settledChild);
        }
        return settled;
    }

    MergeSide side_;
    std::u16string sideKey_;
};

}  // namespace

Settlement settleConflicts(const MetadataNode& node, MergeSide side) {
    Settling settling(side);
    auto settled = settling.settle(node, true);
    return {std::move(settled), settling.count};
}

}  // namespace operations
