// Attributes put into nodes, next to their insertion into plain maps.

#include <array>
#include <map>
#include <utility>
#include <vector>

#include "benchmarks/Benchmarks.hpp"
#include "benchmarks/Generated.hpp"
#include "benchmarks/Measuring.hpp"

namespace benchmarks {

namespace {

using project::metadata::MetadataNodeSpecification;

struct PlainAttributes : std::map<std::u16string, std::u16string> {
    void put(std::u16string key, std::u16string value) { insert_or_assign(std::move(key), std::move(value)); }
};

/// Five attributes put into each of 10,000 new nodes, keys and values moved in. Making and destroying the nodes and the
/// texts is not counted.
template <class Node>
void put(benchmark::State& state) {
    constexpr std::size_t nodeCount = 10000;
    static constexpr std::array<const char16_t*, 5> keys = {u"Name", u"Version", u"Uuid", u"LastModified", u"Size"};
    for (auto _ : state) {
        std::vector<std::array<std::pair<std::u16string, std::u16string>, keys.size()>> attributes(nodeCount);
        for (std::size_t i = 0; i < nodeCount; ++i) {
            for (std::size_t k = 0; k < keys.size(); ++k)
                attributes[i][k].first = keys[k];
            attributes[i][0].second = u"component " + number(i);
            attributes[i][1].second = number(i % 10) + u".1";
            attributes[i][2].second = u"01234567-89ab-cdef-0123-" + number(100000000000 + i);
            attributes[i][3].second = u"2024-05-" + number(10 + i % 20);
            attributes[i][4].second = number(i * 37);
        }
        std::vector<std::unique_ptr<Node>> nodes(nodeCount);
        for (auto& node : nodes)
            node = std::make_unique<Node>();
        timed(state, [&] {
            for (std::size_t i = 0; i < nodeCount; ++i) {
                for (auto& [key, value] : attributes[i])
                    nodes[i]->put(std::move(key), std::move(value));
            }
        });
    }
}

}  // namespace

void addNodeBenchmarks() {
    add("put/50000/project_metadata", 3, put<MetadataNodeSpecification>);
    add("put/50000/map", 3, put<PlainAttributes>);
}

}  // namespace benchmarks
