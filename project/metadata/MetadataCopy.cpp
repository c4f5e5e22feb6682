#include "project/metadata/MetadataCopy.hpp"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <map>
#include <memory>
#include <utility>

namespace project::metadata {

void copyMetadata(const MetadataManager& source, MetadataManager& destination) {
    // Destroyed after the list: an allocator takes the freeing of what is large for the time to tidy up all small parts
    // that were freed before, which takes as long as the copy.
    std::map<MetadataPath, std::shared_ptr<MetadataNode>> nodes;
    std::vector<MetadataPath> visited(1);  // and after those the ones that are going to be
    // Siblings are visited one after the other. Where a store has them in the order of the map, the place of each is
    // behind the one before, and need not be searched for.
    auto place = nodes.end();
    for (std::size_t i = 0; i < visited.size(); ++i) {
        // The first of several paths with one text keeps its node.
        if (source.hasNode(visited[i]))
            place = std::next(nodes.emplace_hint(place, visited[i], source.getNode(visited[i])));
        std::vector<MetadataPath> children = source.getChildren(visited[i]);
        std::move(children.begin(), children.end(), std::back_inserter(visited));
    }
    // The root node belongs to the store itself and is not handed on.
    nodes.erase(MetadataPath());
    destination.setNodes(nodes);
    destination.setPaths(visited);
}

}  // namespace project::metadata
