/// A file system path as the library handles it: UTF-16 text with "/" between its elements.
///
/// A value type: copies are independent, and different objects may be used by different threads. No operation here
/// touches the disk.
#pragma once

#include <string>
#include <string_view>

#include "host/Export.hpp"

namespace host {

class HOST_EXPORT Path {
public:
    /// The empty path.
    Path() = default;

    /// A path with the given text, kept exactly as it is.
    Path(std::u16string text);
    Path(const char16_t* text);

    /// The path that the operating system knows under the name `bytes`.
    ///
    /// Names on disk are byte strings, UTF-8 by custom only. A byte that is not part of valid UTF-8 becomes the
    /// code unit 0xDC00 + byte (U+DC80..U+DCFF), and `accessName` turns it back into the same byte, so every file
    /// can be named, and no two of them have the same path.
    static Path fromAccessName(std::string_view bytes);

    /// The name under which the operating system knows this path: the inverse of `fromAccessName`. Other unpaired
    /// surrogates, which no name on disk can produce, become U+FFFD.
    ///
    /// Code units that stand for bytes give those bytes one by one, also where several of them happen to spell valid
    /// UTF-8: such a path, which `fromAccessName` never makes, names the same file as its spelling in characters. A
    /// path with U+0000 names no file; `FileSystem` and `FileUtils` refuse it, while a stream would see the name
    /// end there.
    std::string accessName() const;

    const std::u16string& text() const noexcept { return text_; }
    bool empty() const noexcept { return text_.empty(); }

    /// The same path with the separators of the operating system: on Linux, the path itself.
    Path native() const { return *this; }

    /// All but the last element; empty if there is only one. The parent of "/" is "/".
    Path parentPath() const;

    /// The last element; empty if the text ends with a separator.
    Path fileName() const;

    /// Appends `relative` with one separator between; an absolute `relative` replaces the path.
    Path& operator/=(const Path& relative);
    friend Path operator/(const Path& left, const Path& right) {
        Path path;
        path.text_.reserve(left.text_.size() + 1 + right.text_.size());
        path.text_ = left.text_;
        return path /= right;
    }

    /// Element by element by their code units, the empty path first, then the absolute ones: negative, zero or positive
    /// as this path sorts before, with or after `other`. Repeated separators do not count.
    int compare(const Path& other) const;

    friend bool operator==(const Path& a, const Path& b) { return a.compare(b) == 0; }
    friend bool operator!=(const Path& a, const Path& b) { return a.compare(b) != 0; }
    friend bool operator<(const Path& a, const Path& b) { return a.compare(b) < 0; }

private:
    std::u16string text_;
};

}  // namespace host
