/// What the file of a path says in a "fixedPath" store, and its form. The disk form of the whole store is written down
/// at the top of PathFiles.cpp.
///
/// No function keeps state; all may be called from any thread.
#pragma once

#include <memory>
#include <string>

#include "host/Path.hpp"
#include "project/metadata/MetadataNode.hpp"
#include "project/metadata/MetadataPath.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "store_support/FileVersion.hpp"
#include "stores/fixed_path/Rank.hpp"

namespace stores::fixed_path {

extern const std::u16string& fixedPathName;

/// What stands for the element of the root path, which has none.
extern const project::metadata::PathElement& noElement;

/// What is wrong with the file of a path.
struct PathFileDamage {
    std::u16string problem;  ///< in words
    bool isForeign;          ///< whether it is no more than something that the store would not write
};

/// What the file of a path says. The root path has neither element nor rank, and its file is the core file. A damaged
/// file has the element that its name tells, if it does, and what else could be read.
struct PathFile {
    project::metadata::PathElement element = noElement;
    Rank rank;                                                    ///< empty if it is unknown
    std::shared_ptr<const project::metadata::MetadataNode> node;  ///< null for a branch, or if it was left out
    std::shared_ptr<const PathFileDamage> damage;                 ///< null if nothing is wrong
    store_support::FileVersion version{};                         ///< the one that says so
    bool hasNode = false;                                         ///< whether the file has a node

    /// Whether something of the path cannot be read.
    bool isBroken() const noexcept { return damage && !damage->isForeign; }

    void setDamage(const std::u16string& problem, bool isForeign = false) {
        damage = std::make_shared<const PathFileDamage>(PathFileDamage{problem, isForeign});
    }
};

using PathFilePtr = std::shared_ptr<const PathFile>;

/// Whether `root` is the root of a "fixedPath" store's core file.
bool isCoreFile(const project::metadata::MetadataNode& root);

/// Whether `root` is the root of a core file or of another path's file, damaged or not.
bool isPathFile(const project::metadata::MetadataNode& root);

/// What `file` with the root `xml` says, `isRoot` for the core file. Its name is not looked at.
/// @throws project::metadata::MetadataReadFailure naming `file`, if it does not name a path, or not its one node
PathFile fromXml(const project::metadata::MetadataNode& xml, bool isRoot, const host::Path& file);

/// Tells `sink` the file that says `content`, `isRoot` for the core file. Its node must not be left out.
void tellXml(const PathFile& content, bool isRoot, project::metadata::XmlSink& sink);

/// The root node of that file. Shares the node of the path.
std::shared_ptr<const project::metadata::MetadataNode> toXml(const PathFile& content, bool isRoot);

}  // namespace stores::fixed_path
