/// Reading the XML files of a project, which may come from anywhere and be changed by others meanwhile.
///
/// No function keeps state; all may be called from any thread.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "store_support/FileVersion.hpp"
#include "store_support/Library.hpp"

namespace store_support {

/// What a node of a tree lacks of what its file has, in words. A value type.
struct Lack {
    const MetadataNode* node;
    std::u16string problem;
};

/// What a file says. A value type.
struct XmlFile {
    /// The version that was read: what is on disk now is this one or a later one. No value if the file does not exist.
    std::optional<FileVersion> version;
    std::shared_ptr<MetadataNode> root;  ///< null if there is no such file, or it is damaged
    std::u16string problem;              ///< why it is damaged, in words
    std::vector<Lack> lacks;  ///< what the tree lacks, in the order of the file, for `XmlExtent::aroundRefused`
    std::u16string foreign;   ///< what else it lacks of the whole file, in words, see `describeLoss`; empty if nothing
};

enum class XmlExtent {
    wholeTree,
    rootOnly,
    /// The whole tree; attributes that a node refuses are damage of their nodes only.
    aroundRefused
};

/// Reads `file`. That it is no regular file, is larger than `maximumFileSize`, is no XML, or holds an attribute that a
/// node refuses, is damage. That the system cannot read it now is an error, and may be over the next time.
/// @throws MetadataReadFailure naming `file` and the system's reason
XmlFile readXmlFile(const Path& file, XmlExtent extent = XmlExtent::wholeTree);

/// The same, if `findStatus` has just answered `status` for `file`.
XmlFile readXmlFile(const Path& file, const struct stat& status, XmlExtent extent = XmlExtent::wholeTree);

/// Reads a small file in which nothing is wrong, with few calls of the system.
/// @param name its access name, in the folder with the descriptor `folder` where it is none from the root on
/// @return no value if it is not that, does not exist or changes meanwhile: then `readXmlFile` says what it is
std::optional<XmlFile> readSmallFile(const std::string& name, int folder = AT_FDCWD);

}  // namespace store_support
