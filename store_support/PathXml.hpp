/// The XML form of a path that both kinds of store use: an element named "Path" with the type and the location of the
/// path's last step, and with the path's node, if it has one, in an element named "Node".
///
///     <Path Location="main.c" Type="File">
///         <Node>
///             <Info Size="12"/>
///         </Node>
///     </Path>
///
/// A text that XML cannot hold as it is stands in "EscapedType" or "EscapedLocation" instead, where each UTF-16 unit
/// that XML would not keep is written as a backslash, "u" and four hexadecimal digits, and a backslash as two.
///
/// No function keeps state; all may be called from any thread.
#pragma once

#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

#include "project/metadata/MetadataXml.hpp"
#include "store_support/Library.hpp"

namespace store_support {

/// The name of a core file's root node.
extern const std::u16string& projectElementName;

/// The name of the element of a path.
extern const std::u16string& pathElementName;

/// The name of the element that holds the node of a path.
extern const std::u16string& nodeElementName;

/// Whether XML keeps `text` as it is, so that `putPathElement` need not escape it.
bool survivesXml(const std::u16string& text);

void putPathElement(MetadataNode& xml, const PathElement& element);
void putPathElement(project::metadata::XmlSink& xml, const PathElement& element);

/// @throws MetadataReadFailure naming `file`, if `xml` does not name a path element
PathElement getPathElement(const MetadataNode& xml, const Path& file);

/// What `xml`, the element of a project or of a path, holds that no store writes there, in words: another name than a
/// project's, an attribute that is not of a path element, nor one of `moreKeys`, an attribute of its "Node", or another
/// child, unless it `mayHavePaths`: then the caller reads all children but "Node". Empty if there is nothing.
std::u16string findForeign(const MetadataNode& xml, std::initializer_list<std::u16string_view> moreKeys,
                           bool mayHavePaths);

/// Adds a copy of `node`, unless it is null.
void putNode(MetadataNode& xml, const MetadataNode* node);

/// Adds `node` itself, unless it is null.
void putNode(project::metadata::XmlSink& xml, const std::shared_ptr<const MetadataNode>& node);

/// The nodes of a tree that `tell` tells, to be read only: those that are told are shared.
std::shared_ptr<const MetadataNode> makeNodes(const std::function<void(project::metadata::XmlSink& sink)>& tell);

/// The node in `xml`, which it shares; null if it holds none.
/// @throws MetadataReadFailure naming `file`, if `xml` holds an empty "Node" or several
std::shared_ptr<MetadataNode> getNode(const MetadataNode& xml, const Path& file);

}  // namespace store_support
