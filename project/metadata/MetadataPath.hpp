/// Addresses of nodes in a metadata tree.
///
/// Value types: copies are independent, and different objects may be used by different threads. Nothing is checked:
/// any texts make an element, any elements a path. Nothing throws but for lack of memory.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "project/Export.hpp"

namespace project::metadata {

/// One step from a node to a child: the kind of the step, and which child of that kind. It never changes, and copies
/// share its texts.
class PROJECT_METADATA_EXPORT PathElement {
public:
    PathElement(const std::u16string& type, const std::u16string& location);

    // Moving would leave an element without texts.
    PathElement(const PathElement&) noexcept = default;
    PathElement& operator=(const PathElement&) noexcept = default;
    ~PathElement() = default;

    const std::u16string& getType() const noexcept { return texts_->type; }
    const std::u16string& getLocation() const noexcept { return texts_->location; }

private:
    struct Texts {
        std::u16string type;
        std::u16string location;
    };

    std::shared_ptr<const Texts> texts_;
};

PROJECT_METADATA_EXPORT bool operator==(const PathElement& a, const PathElement& b) noexcept;
inline bool operator!=(const PathElement& a, const PathElement& b) noexcept {
    return !(a == b);
}

/// By type, then by location, each by UTF-16 code units.
PROJECT_METADATA_EXPORT bool operator<(const PathElement& a, const PathElement& b) noexcept;

/// The steps from the root of a tree down to a node. No steps: the root itself. Copies share the steps.
class PROJECT_METADATA_EXPORT MetadataPath {
public:
    /// The root path.
    MetadataPath() = default;

    /// The path with the given steps, the first just below the root.
    explicit MetadataPath(std::vector<PathElement> path);

    const std::vector<PathElement>& getPath() const noexcept;

    /// The last step. Undefined for the root path.
    PathElement getLeaf() const;

    /// The path without its last step. Undefined for the root path.
    MetadataPath getParent() const;

    /// The text form: each step as type, ":" and location, joined by "|". The root path is the empty text. Separators
    /// inside a step are not escaped, so different paths may have one text.
    std::u16string string() const;

    /// Whether `other` is the immediate parent of this path, by their texts. Undefined for the root path.
    bool isParent(const MetadataPath& other) const;

private:
    std::shared_ptr<const std::vector<PathElement>> path_;  ///< null for the root path
};

/// Whether both have equal steps.
PROJECT_METADATA_EXPORT bool operator==(const MetadataPath& a, const MetadataPath& b) noexcept;
inline bool operator!=(const MetadataPath& a, const MetadataPath& b) noexcept {
    return !(a == b);
}

/// The order of the text forms, by UTF-16 code units; the separators take part. Different paths with one text are
/// equivalent. No text is built, nothing is allocated.
PROJECT_METADATA_EXPORT bool operator<(const MetadataPath& a, const MetadataPath& b) noexcept;

/// Makes a path step by step.
class PROJECT_METADATA_EXPORT MetadataPathBuilder {
public:
    /// Appends one step. @return this builder
    MetadataPathBuilder& add(const std::u16string& type, const std::u16string& location);

    /// Appends all steps of `path`. @return this builder
    MetadataPathBuilder& add(const MetadataPath& path);

    /// The path of the steps so far; the builder keeps them.
    MetadataPath build() const;

private:
    std::vector<PathElement> elements_;
};

}  // namespace project::metadata
