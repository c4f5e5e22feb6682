/// "Did you mean": what somebody may have wanted to write. May be called from any thread.
#pragma once

#include <string>
#include <vector>

namespace cli {

/// Such as "; did you mean \"scan\"?", or nothing if none of `candidates` is much like `word`. Both are in bytes.
std::string suggest(const std::string& word, const std::vector<std::string>& candidates);

}  // namespace cli
