/// Whether a file is one of metadata, as far as XML goes.
///
/// Different threads may check different files at the same time.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "operations/Library.hpp"

namespace operations {

/// How a problem can be mended.
enum class Remedy { none, complete, removeLeftover, removeWorkshop, moveAside, giveBack, renew };

struct Problem {
    host::Path file;
    int line = 0;            ///< from 1; 0 if it is not known, or the file as a whole is the problem
    std::u16string problem;  ///< a sentence without its point
    Remedy remedy = Remedy::none;
    std::optional<pm::MetadataPath> path = std::nullopt;  ///< if it is about one, and no file is known
};

/// Reads `file` and tells the first thing that makes it no well-formed XML, and every name and value that metadata
/// cannot hold. Nothing outside the file is read, entities are not expanded, and limits on the size of texts and the
/// depth hold, whatever the file says.
std::vector<Problem> checkXml(const host::Path& file);

}  // namespace operations
