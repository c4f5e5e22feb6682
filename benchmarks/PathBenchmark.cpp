// Paths in order, and the copying of whole stores that sorts them, next to the same with paths that are compared by
// building their texts.

#include <deque>
#include <map>
#include <unordered_map>
#include <utility>

#include "benchmarks/Benchmarks.hpp"
#include "benchmarks/Generated.hpp"
#include "benchmarks/Heap.hpp"
#include "benchmarks/Measuring.hpp"
#include "project/metadata/MetadataCopy.hpp"

namespace benchmarks {

namespace {

using project::metadata::MetadataManager;
using project::metadata::MetadataNode;
using project::metadata::MetadataNodeSpecification;
using project::metadata::MetadataPath;

struct TextLess {
    bool operator()(const MetadataPath& a, const MetadataPath& b) const { return a.string() < b.string(); }
};

/// The files of one folder: they share all but the last step.
std::vector<MetadataPath> makeSiblings() {
    std::vector<MetadataPath> siblings;
    for (MetadataPath& path : makePaths(10000)) {
        if (path.getPath().size() == 3 && siblings.size() < 100)
            siblings.push_back(std::move(path));
    }
    return siblings;
}

/// Each of some paths with each.
template <class Less>
void compareSiblings(benchmark::State& state, const Less& less) {
    const std::vector<MetadataPath> paths = makeSiblings();
    const auto compareAll = [&] {
        std::size_t count = 0;
        for (const MetadataPath& a : paths) {
            for (const MetadataPath& b : paths)
                count += less(a, b) ? 1U : 0U;
        }
        return count;
    };
    for (auto _ : state)
        timed(state, [&] { benchmark::DoNotOptimize(compareAll()); });
    const HeapUse use = measureHeap([&] { benchmark::DoNotOptimize(compareAll()); });
    state.counters["allocations"] = static_cast<double>(use.allocations);
}

/// What a store answers to a copy, ready to be handed out: it costs nothing, and works once.
struct Answers {
    Answers() = default;
    explicit Answers(std::size_t count) {
        std::map<MetadataPath, std::vector<MetadataPath>> childrenOf;
        for (MetadataPath& path : makePaths(count))
            childrenOf[path.getParent()].push_back(std::move(path));
        // Paths are asked for level by level.
        std::deque<MetadataPath> queue(1);
        for (; !queue.empty(); queue.pop_front()) {
            children.push_back(childrenOf[queue.front()]);
            queue.insert(queue.end(), children.back().begin(), children.back().end());
            nodes.push_back(std::make_unique<MetadataNodeSpecification>());
        }
    }

    std::vector<std::vector<MetadataPath>> children;
    std::vector<std::unique_ptr<MetadataNode>> nodes;
};

/// A store that costs nothing: hands out its answers in the order in which a copy asks, and drops what it is given.
class FreeStore : public MetadataManager {
public:
    FreeStore() = default;
    explicit FreeStore(Answers answers) : answers_(std::move(answers)) {}

    std::unique_ptr<MetadataNode> getNode(const MetadataPath& /*path*/) const override {
        return std::move(answers_.nodes[nextNode_++]);
    }
    bool hasNode(const MetadataPath& /*path*/) const override { return true; }
    std::vector<MetadataPath> getChildren(const MetadataPath& /*path*/) const override {
        return std::move(answers_.children[nextChildren_++]);
    }

    void setNodes(const std::map<MetadataPath, std::shared_ptr<MetadataNode>>& nodes) override {
        given_ = nodes.size();
    }
    void setPaths(const std::vector<MetadataPath>& paths) override { given_ += paths.size(); }
    std::size_t given() const { return given_; }

    void setNode(const MetadataPath& /*path*/, const MetadataNode& /*node*/) override {}
    void removeNode(const MetadataPath& /*path*/) override {}
    void addPath(const MetadataPath& /*path*/) override {}
    void removePath(const MetadataPath& /*path*/) override {}
    void removePaths(const std::vector<MetadataPath>& /*paths*/) override {}
    bool hasPath(const MetadataPath& /*path*/) const override { return true; }

private:
    mutable Answers answers_;
    mutable std::size_t nextNode_ = 0;
    mutable std::size_t nextChildren_ = 0;
    std::size_t given_ = 0;
};

std::size_t copyByLibrary(const MetadataManager& source) {
    FreeStore destination;
    copyMetadata(source, destination);
    return destination.given();
}

/// The copy as it would be if the map compared texts; the stores are the same, only that nothing is handed on.
std::size_t copyByTexts(const MetadataManager& source) {
    std::deque<MetadataPath> queue(1);
    std::vector<MetadataPath> visited;
    std::map<MetadataPath, std::shared_ptr<MetadataNode>, TextLess> nodes;
    while (!queue.empty()) {
        visited.push_back(std::move(queue.front()));
        queue.pop_front();
        const MetadataPath& path = visited.back();
        if (source.hasNode(path))
            nodes.emplace(path, source.getNode(path));
        for (MetadataPath& child : source.getChildren(path))
            queue.push_back(std::move(child));
    }
    nodes.erase(MetadataPath());
    return nodes.size() + visited.size();
}

template <class Copy>
void copyStore(benchmark::State& state, std::size_t count, const Copy& copy) {
    for (auto _ : state) {
        FreeStore source{Answers(count)};
        std::size_t given = 0;
        timed(state, [&] { given = copy(source); });
        if (given != 2 * count + 1)  // every path, and the root path without its node
            state.SkipWithError("not everything was copied");
    }
}

}  // namespace

void addPathBenchmarks() {
    add("less/100/project_metadata", 20, [](auto& state) { compareSiblings(state, std::less<MetadataPath>()); });
    add("less/100/texts", 20, [](auto& state) { compareSiblings(state, TextLess()); });

    for (const std::size_t count : {2000U, 20000U, 200000U, 2000000U}) {
        const std::string name = "copy/" + std::to_string(count);
        auto* ours = add(name + "/project_metadata", 1, [=](auto& state) { copyStore(state, count, copyByLibrary); });
        if (count <= 200000)
            add(name + "/texts", 1, [=](auto& state) { copyStore(state, count, copyByTexts); });
        else
            ours->Repetitions(3);  // making the paths takes longer than copying them
    }
}

}  // namespace benchmarks
