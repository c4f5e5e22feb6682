// Paths and files, over std::filesystem.

#include "Text.hpp"

#include "host/FileSystem.hpp"
#include "host/FileUtils.hpp"
#include "host/TempDirGuard.hpp"
#include "host/Text.hpp"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <random>
#include <utility>
#include <vector>

namespace host {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void fail(const Path& path, std::error_code code) {
    for (const auto denied :
         {std::errc::permission_denied, std::errc::operation_not_permitted, std::errc::read_only_file_system}) {
        if (code == denied)
            throw AccessDeniedException(path, code);
    }
    throw FileSystemException(path, code);
}

/// Calls `operation` with the name of `path`. Its errors become ours.
template <class Operation>
auto call(const Path& path, const Operation& operation) {
    try {
        return operation(fs::path(path.accessName()));
    } catch (const fs::filesystem_error& error) {
        fail(path, error.code());
    }
}

/// The elements of a path: "/" for the root, and the names.
std::vector<std::u16string> split(const Path& path) {
    std::vector<std::u16string> elements;
    if (!path.empty() && path.text().front() == u'/')
        elements.emplace_back(u"/");
    std::u16string name;
    for (const char16_t unit : path.text() + u'/') {
        if (unit != u'/')
            name += unit;
        else if (!name.empty())
            elements.push_back(std::exchange(name, u""));
    }
    return elements;
}

}  // namespace

Path::Path(std::u16string text) : text_(std::move(text)) {}
Path::Path(const char16_t* text) : text_(text) {}

Path Path::fromAccessName(std::string_view bytes) {
    return decodeName(bytes, true);
}

std::string Path::accessName() const {
    return encodeName(text_, true);
}

Path Path::parentPath() const {
    const auto last = text_.rfind(u'/');
    if (last == std::u16string::npos)
        return {};
    const auto end = text_.find_last_not_of(u'/', last);
    return end == std::u16string::npos ? u"/" : text_.substr(0, end + 1);
}

Path Path::fileName() const {
    return text_.substr(text_.rfind(u'/') + 1);
}

Path& Path::operator/=(const Path& relative) {
    if (text_.empty() || (!relative.empty() && relative.text_.front() == u'/'))
        return *this = relative;
    text_ += (text_.back() == u'/' ? u"" : u"/") + relative.text_;
    return *this;
}

int Path::compare(const Path& other) const {
    const auto here = split(*this);
    const auto there = split(other);
    return here < there ? -1 : there < here ? 1 : 0;
}

FileSystemException::FileSystemException(Path path, std::error_code code)
    : path_(std::move(path)), code_(code), text_(code.message() + ": " + toUtf8(path_.text())) {}

struct DirectoryIterator::State {
    Path folder;
    fs::directory_iterator position;
};

DirectoryIterator::DirectoryIterator(const Path& folder)
    : state_(new State{folder, call(folder, [](const fs::path& name) { return fs::directory_iterator(name); })}) {}

DirectoryIterator::~DirectoryIterator() = default;

bool DirectoryIterator::isOpen() const {
    return state_->position != fs::directory_iterator();
}

Path DirectoryIterator::fullPathName() const {
    return state_->folder / Path::fromAccessName(state_->position->path().filename().native());
}

void DirectoryIterator::increment() {
    call(state_->folder, [&](const fs::path& /*name*/) { ++state_->position; });
}

bool FileSystem::exists(const Path& path) {
    return call(path, [](const fs::path& name) { return fs::exists(name); });
}

void FileSystem::create_directories(const Path& path) {
    call(path, [](const fs::path& name) { fs::create_directories(name); });
}

void FileSystem::remove_all(const Path& path) {
    call(path, [](const fs::path& name) { fs::remove_all(name); });
}

void FileSystem::copy_file(const Path& from, const Path& to, CopyOption option) {
    const bool replaces = option == CopyOption::overwriteExisting;
    call(to, [&](const fs::path& target) {
        // Beside the old file, which has its content until the copy is complete.
        const fs::path copy = replaces ? target.native() + ".new" : target.native();
        fs::copy_file(from.accessName(), copy);
        if (replaces)
            fs::rename(copy, target);
    });
}

Path FileSystem::temp_directory_name() {
    return Path::fromAccessName(fs::temp_directory_path().native());
}

std::u16string FileSystem::getExceptionMessage(const FileSystemException& error) {
    return fromUtf8(error.what());
}

bool FileUtils::existNoExcept(const Path& path) noexcept {
    std::error_code code;
    return fs::exists(path.accessName(), code);
}

bool FileUtils::isReadOnly(const Path& path) {
    const std::string name = path.empty() ? "." : path.accessName();
    if (access(name.c_str(), W_OK) == 0)
        return false;
    const std::error_code code(errno, std::generic_category());
    if (code == std::errc::permission_denied || code == std::errc::read_only_file_system)
        return true;
    fail(path, code);
}

bool FileUtils::isReadOnlyNoExcept(const Path& path) noexcept {
    try {
        return isReadOnly(path);
    } catch (...) {
        return false;
    }
}

void FileUtils::makeWritable(const Path& path) {
    call(path.empty() ? Path(u".") : path, [](const fs::path& name) {
        if (!fs::is_symlink(name))
            fs::permissions(name, fs::perms::owner_write, fs::perm_options::add);
    });
}

Path FileUtils::followLink(const Path& path) {
    std::error_code code;
    const fs::path target = fs::is_symlink(path.accessName(), code) ? fs::canonical(path.accessName(), code) : "";
    return target.empty() ? path : Path::fromAccessName(target.native());
}

Path FileUtils::makeAbsolute(const Path& path) {
    return Path::fromAccessName(fs::absolute(path.empty() ? "." : path.accessName()).native());
}

Path FileUtils::normalize(const Path& path) {
    std::string normal = fs::path(path.accessName()).lexically_normal().native();
    while (normal.size() > 1 && normal.back() == '/')
        normal.pop_back();
    return Path::fromAccessName(normal);
}

bool FileUtils::isAncestor(const Path& ancestor, const Path& descendant) {
    const auto above = split(ancestor);
    const auto below = split(descendant);
    return !above.empty() && above.size() < below.size() && std::equal(above.begin(), above.end(), below.begin());
}

TempDirGuard::TempDirGuard(const std::u16string& parent, const std::u16string& prefix, const std::u16string& suffix) {
    std::random_device random;
    do
        name_ = (Path(parent) / Path(prefix + fromUtf8(std::to_string(random()) + std::to_string(random())) + suffix))
                    .text();
    while (!call(name_, [](const fs::path& name) { return fs::create_directory(name); }));
    call(name_, [](const fs::path& name) { fs::permissions(name, fs::perms::owner_all); });
}

TempDirGuard::~TempDirGuard() {
    std::error_code ignored;
    fs::remove_all(Path(name_).accessName(), ignored);
}

}  // namespace host
