#include "project/metadata/MetadataPath.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <utility>

namespace project::metadata {

namespace {

constexpr std::u16string_view typeEnd = u":";
constexpr std::u16string_view elementEnd = u"|";

/// The steps of the root path. Built on first use and never destroyed, in memory that is there already.
const std::vector<PathElement>& noSteps() noexcept {
    using Nothing = std::vector<PathElement>;
    alignas(Nothing) static std::array<std::byte, sizeof(Nothing)> memory;
    static const Nothing* const nothing = new (memory.data()) Nothing;
    return *nothing;
}

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

/// Some steps of a path, one after the other.
struct Steps {
    explicit Steps(const MetadataPath& path) noexcept
        : first(path.getPath().data()), last(first + path.getPath().size()) {}

    const PathElement* first;
    const PathElement* last;
};

/// Negative, zero or positive as the text form of `a` sorts before, with or after that of `b`. Both must have steps.
int compareByPieces(Steps a, Steps b) noexcept {
    TextPieces textA(a.first, a.last);
    TextPieces textB(b.first, b.last);
    while (!textA.atEnd() && !textB.atEnd()) {
        const std::size_t length = std::min(textA.piece().size(), textB.piece().size());
        if (const int order = textA.piece().substr(0, length).compare(textB.piece().substr(0, length)))
            return order;
        textA.advance(length);
        textB.advance(length);
    }
    return static_cast<int>(textB.atEnd()) - static_cast<int>(textA.atEnd());
}

/// As the operator of the standard library, which goes unit by unit.
inline bool isEqual(const std::u16string& a, const std::u16string& b) noexcept {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(char16_t)) == 0;
}

/// As `compareByPieces`, and fast where the paths first differ inside a type or location, not where one of these ends.
int compareTexts(Steps a, Steps b) noexcept {
    if (a.first == b.first && a.last == b.last)
        return 0;
    while (a.first != a.last && b.first != b.last && *a.first == *b.first) {
        ++a.first;
        ++b.first;
    }
    // Where one path ends its text is a prefix of the other's.
    if (a.first == a.last || b.first == b.last)
        return static_cast<int>(a.first != a.last) - static_cast<int>(b.first != b.last);

    const bool hasEqualTypes = isEqual(a.first->getType(), b.first->getType());
    const std::u16string& textA = hasEqualTypes ? a.first->getLocation() : a.first->getType();
    const std::u16string& textB = hasEqualTypes ? b.first->getLocation() : b.first->getType();
    const std::size_t size = std::min(textA.size(), textB.size());
    for (std::size_t i = 0; i < size; ++i) {
        if (textA[i] != textB[i])
            return textA[i] < textB[i] ? -1 : 1;
    }
    return compareByPieces(a, b);
}

}  // namespace

PathElement::PathElement(const std::u16string& type, const std::u16string& location)
    : texts_(std::make_shared<const Texts>(Texts{type, location})) {}

bool operator==(const PathElement& a, const PathElement& b) noexcept {
    // Elements of paths that were made from each other mostly share their texts.
    return &a.getType() == &b.getType() ||
           (isEqual(a.getType(), b.getType()) && isEqual(a.getLocation(), b.getLocation()));
}

bool operator<(const PathElement& a, const PathElement& b) noexcept {
    if (isEqual(a.getType(), b.getType()))
        return a.getLocation() < b.getLocation();
    return a.getType() < b.getType();
}

MetadataPath::MetadataPath(std::vector<PathElement> path)
    : path_(path.empty() ? nullptr : std::make_shared<const std::vector<PathElement>>(std::move(path))) {}

const std::vector<PathElement>& MetadataPath::getPath() const noexcept {
    return path_ ? *path_ : noSteps();
}

PathElement MetadataPath::getLeaf() const {
    return getPath().back();
}

MetadataPath MetadataPath::getParent() const {
    return MetadataPath(std::vector<PathElement>(getPath().begin(), getPath().end() - 1));
}

std::u16string MetadataPath::string() const {
    std::u16string text;
    for (const PathElement& element : getPath()) {
        if (&element != &getPath().front())
            text += elementEnd;
        text.append(element.getType()).append(typeEnd).append(element.getLocation());
    }
    return text;
}

bool MetadataPath::isParent(const MetadataPath& other) const {
    Steps parent(*this);
    --parent.last;
    return compareTexts(parent, Steps(other)) == 0;
}

bool operator==(const MetadataPath& a, const MetadataPath& b) noexcept {
    return &a.getPath() == &b.getPath() || a.getPath() == b.getPath();
}

bool operator<(const MetadataPath& a, const MetadataPath& b) noexcept {
    return compareTexts(Steps(a), Steps(b)) < 0;
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
