#include "project/metadata/MetadataPath.hpp"

#include <algorithm>
#include <string_view>
#include <utility>

namespace project::metadata {

namespace {

constexpr std::u16string_view typeEnd = u":";
constexpr std::u16string_view elementEnd = u"|";

/// The text form of some elements, read piece by piece: type, ":", location, "|", type, ...
class TextPieces {
public:
    /// `first` must not be `last`.
    TextPieces(const PathElement* first, const PathElement* last) : element_(first), end_(last) { next(); }

    bool atEnd() const { return element_ == end_; }

    /// What is left of the current piece; never empty unless at the end.
    std::u16string_view piece() const { return piece_; }

    /// Drops the first `count` units of the current piece.
    void advance(std::size_t count) {
        piece_.remove_prefix(count);
        if (piece_.empty())
            next();
    }

private:
    void next() {
        while (piece_.empty()) {
            position_ = (position_ + 1) % 4;
            switch (position_) {
                case 0:
                    piece_ = element_->getType();
                    break;
                case 1:
                    piece_ = typeEnd;
                    break;
                case 2:
                    piece_ = element_->getLocation();
                    break;
                default:
                    if (++element_ == end_)
                        return;
                    piece_ = elementEnd;
            }
        }
    }

    const PathElement* element_;
    const PathElement* end_;
    int position_ = -1;
    std::u16string_view piece_;
};

/// Negative, zero or positive as the text form of `a` sorts before, with or after that of `b`.
int compareTexts(const MetadataPath& a, const MetadataPath& b) noexcept {
    const std::vector<PathElement>& elementsA = a.getPath();
    const std::vector<PathElement>& elementsB = b.getPath();
    const std::size_t common = std::min(elementsA.size(), elementsB.size());
    std::size_t equal = 0;
    while (equal < common && elementsA[equal] == elementsB[equal])
        ++equal;
    // If one path ends here its text is a prefix of the other's.
    if (equal == common)
        return elementsA.size() < elementsB.size() ? -1 : elementsA.size() > elementsB.size();

    TextPieces textA(elementsA.data() + equal, elementsA.data() + elementsA.size());
    TextPieces textB(elementsB.data() + equal, elementsB.data() + elementsB.size());
    while (!textA.atEnd() && !textB.atEnd()) {
        const std::size_t length = std::min(textA.piece().size(), textB.piece().size());
        if (const int order = textA.piece().substr(0, length).compare(textB.piece().substr(0, length)))
            return order;
        textA.advance(length);
        textB.advance(length);
    }
    return static_cast<int>(textB.atEnd()) - static_cast<int>(textA.atEnd());
}

}  // namespace

PathElement::PathElement(const std::u16string& type, const std::u16string& location)
    : type_(type), location_(location) {}

bool operator==(const PathElement& a, const PathElement& b) noexcept {
    return a.getType() == b.getType() && a.getLocation() == b.getLocation();
}

bool operator<(const PathElement& a, const PathElement& b) noexcept {
    if (a.getType() == b.getType())
        return a.getLocation() < b.getLocation();
    return a.getType() < b.getType();
}

MetadataPath::MetadataPath(std::vector<PathElement> path) : path_(std::move(path)) {}

PathElement MetadataPath::getLeaf() const {
    return path_.back();
}

MetadataPath MetadataPath::getParent() const {
    return MetadataPath(std::vector<PathElement>(path_.begin(), path_.end() - 1));
}

std::u16string MetadataPath::string() const {
    std::u16string text;
    for (const PathElement& element : path_) {
        if (&element != &path_.front())
            text += elementEnd;
        text.append(element.getType()).append(typeEnd).append(element.getLocation());
    }
    return text;
}

bool MetadataPath::isParent(const MetadataPath& other) const {
    return compareTexts(getParent(), other) == 0;
}

bool operator==(const MetadataPath& a, const MetadataPath& b) noexcept {
    return a.getPath() == b.getPath();
}

bool operator<(const MetadataPath& a, const MetadataPath& b) noexcept {
    return compareTexts(a, b) < 0;
}

MetadataPathBuilder& MetadataPathBuilder::add(const std::u16string& type, const std::u16string& location) {
    elements_.emplace_back(type, location);
    return *this;
}

MetadataPathBuilder& MetadataPathBuilder::add(const MetadataPath& path) {
    elements_.insert(elements_.end(), path.getPath().begin(), path.getPath().end());
    return *this;
}

MetadataPath MetadataPathBuilder::build() const {
    return MetadataPath(elements_);
}

}  // namespace project::metadata
