#include "project/metadata/MetadataCopy.hpp"

#include <deque>
#include <iterator>
#include <map>
#include <memory>
#include <utility>

namespace project::metadata {

void copyMetadata(const MetadataManager& source, MetadataManager& destination) {
    std::deque<MetadataPath> queue(1);
    std::vector<MetadataPath> visited;
    std::map<MetadataPath, std::shared_ptr<MetadataNode>> nodes;
    // Siblings are visited one after the other. Where a store has them in the order of the map, the place of each is
    // behind the one before, and need not be searched for.
    auto place = nodes.end();
    while (!queue.empty()) {
        visited.push_back(std::move(queue.front()));
        queue.pop_front();
        const MetadataPath& path = visited.back();
        // The first of several paths with one text keeps its node.
        if (source.hasNode(path))
            place = std::next(nodes.emplace_hint(place, path, source.getNode(path)));
        for (MetadataPath& child : source.getChildren(path))
            queue.push_back(std::move(child));
    }
    // The root node belongs to the store itself and is not handed on.
    nodes.erase(MetadataPath());
    destination.setNodes(nodes);
    destination.setPaths(visited);
}

}  // namespace project::metadata
