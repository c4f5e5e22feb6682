/// The tree that one writes first: UTF-16 texts, a map and shared children, everything a block of its own.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "benchmarks/Peers.hpp"

namespace benchmarks {

/// Not synchronised.
struct PlainNode {
    std::map<std::u16string, std::u16string> attributes;
    std::vector<std::shared_ptr<PlainNode>> children;
    std::u16string name;
};

struct PlainDocument : Document {
    std::shared_ptr<PlainNode> root;
};

}  // namespace benchmarks
