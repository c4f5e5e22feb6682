#include "host/Path.hpp"

#include "embedded/host/Utf.hpp"

#include <algorithm>
#include <utility>

namespace host {

namespace {

constexpr char16_t separator = u'/';

/// Reads on at `position`. A run of separators is less than every other unit, and the end less than that, so that
/// comparing texts by these values compares them element by element.
int nextValue(const std::u16string& text, std::size_t& position) {
    if (position == text.size())
        return -1;
    if (text[position] != separator)
        return 1 + text[position++];
    position = std::min(text.find_first_not_of(separator, position), text.size());
    return 0;
}

}  // namespace

Path::Path(std::u16string text) : text_(std::move(text)) {}

Path::Path(const char16_t* text) : text_(text) {}

Path Path::fromAccessName(std::string_view bytes) {
    return decodeUtf8(bytes, IllFormed::keepBytes);
}

std::string Path::accessName() const {
    return encodeUtf8(text_, IllFormed::keepBytes);
}

Path Path::parentPath() const {
    const auto last = text_.rfind(separator);
    if (last == std::u16string::npos)
        return {};
    const auto end = text_.find_last_not_of(separator, last);
    return end == std::u16string::npos ? Path(u"/") : Path(text_.substr(0, end + 1));
}

Path Path::fileName() const {
    return text_.substr(text_.rfind(separator) + 1);
}

Path& Path::operator/=(const Path& relative) {
    const bool absolute = !relative.empty() && relative.text_.front() == separator;
    if (absolute || text_.empty())
        return *this = relative;
    const std::size_t size = relative.text_.size();  // as it is now: it may be this path itself
    text_.reserve(text_.size() + 1 + size);
    if (text_.back() != separator)
        text_ += separator;
    text_.append(relative.text_, 0, size);
    return *this;
}

int Path::compare(const Path& other) const {
    // Paths that are compared with each other mostly begin alike. The separators before where they part may go on
    // behind it.
    const auto parting = std::mismatch(text_.begin(), text_.end(), other.text_.begin(), other.text_.end()).first;
    auto here = static_cast<std::size_t>(parting - text_.begin());
    while (here > 0 && text_[here - 1] == separator)
        --here;
    std::size_t there = here;
    for (;;) {
        const int value = nextValue(text_, here);
        const int otherValue = nextValue(other.text_, there);
        if (value != otherValue || value < 0)
            return value - otherValue;
    }
}

}  // namespace host
