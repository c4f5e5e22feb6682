/// The files of a "fixedPath" store by themselves.
#pragma once

#include "project/metadata/MetadataFiles.hpp"
#include "stores/Names.hpp"

namespace stores::fixed_path {

/// A file holds one path, whose place is its rank; the core file holds the root path. Has no state.
class FixedPathFormat : public project::metadata::MetadataFileFormat {
public:
    std::vector<std::u16string> getFilePatterns() const override;
    std::optional<project::metadata::FileContent> readFile(const Path& file) const override;
    void writeFile(const project::metadata::FileContent& content, const Path& file) const override;
};

}  // namespace stores::fixed_path
