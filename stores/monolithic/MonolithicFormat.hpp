/// The file of a "monolithic" store by itself.
#pragma once

#include "project/metadata/MetadataFiles.hpp"
#include "stores/Names.hpp"

namespace stores::monolithic {

/// A file holds all paths, in their order. Has no state.
class MonolithicFormat : public project::metadata::MetadataFileFormat {
public:
    std::vector<std::u16string> getFilePatterns() const override;
    std::optional<project::metadata::FileContent> readFile(const Path& file) const override;
    void writeFile(const project::metadata::FileContent& content, const Path& file) const override;
    void writePaths(const project::metadata::PathTeller& tell, const Path& file) const override;
};

}  // namespace stores::monolithic
