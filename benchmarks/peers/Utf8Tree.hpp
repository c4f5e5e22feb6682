/// A tree whose texts are as libxml2 takes them.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace benchmarks {

/// Not synchronised.
struct Utf8Node {
    std::string name;
    std::map<std::string, std::string> attributes;
    std::vector<Utf8Node> children;
};

/// @throws std::runtime_error if `file` cannot be read
Utf8Node readUtf8Tree(const std::string& file);

}  // namespace benchmarks
