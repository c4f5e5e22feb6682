/// What the tests of the library have in common.
#pragma once

#include <algorithm>
#include <exception>
#include <filesystem>
#include <string>
#include <variant>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/FileSystem.hpp"
#include "host/MessageException.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataNode.hpp"
#include "project/metadata/MetadataPath.hpp"
#include "tests/support/Settings.hpp"
#include "tests/support/TempFolder.hpp"
#include "tests/support/UnprivilegedUser.hpp"

namespace test {

using Texts = std::vector<std::u16string>;

/// The arguments of `error`, which all have to be UTF-16 texts.
inline Texts argumentsOf(const host::UserException& error) {
    Texts arguments;
    for (const host::MessageArgument& argument : error.GetBaseMsgIDObj().arguments)
        arguments.push_back(std::get<std::u16string>(argument));
    return arguments;
}

/// Stands for a cause that is the message of the file system error nested in the error.
constexpr const char16_t* messageOfNested = u"(message of the nested error)";

/// The arguments of the error that `action` raises. If it is nested around an error of the file system, they end with
/// `messageOfNested`, whether it takes a cause or not. An exception that is no `Error` passes on and fails the test.
template <class Error, class Action>
Texts raised(Action&& action) {
    Texts arguments;
    try {
        action();
        ADD_FAILURE() << "nothing was raised";
    } catch (const Error& error) {
        arguments = argumentsOf(error);
        try {
            std::rethrow_if_nested(error);
        } catch (const host::FileSystemException& nested) {
            if (arguments.size() == 2 && arguments.back() == host::FileSystem::getExceptionMessage(nested))
                arguments.pop_back();
            arguments.emplace_back(messageOfNested);
        } catch (...) {
            arguments.emplace_back(u"(something else is nested)");
        }
    }
    return arguments;
}

/// A node with everything below it on one line: name{key=value,key=value}[child,child].
inline std::u16string render(const project::metadata::MetadataNode& node) {
    std::u16string text = node.getName();
    std::u16string separator = u"{";
    for (const std::u16string& key : node.getAttributeKeys()) {
        text += separator + key + u"=" + node.get(key);
        separator = u",";
    }
    if (separator == u",")
        text += u"}";
    separator = u"[";
    for (const auto& child : node.getChildNodes()) {
        text += separator + render(*child);
        separator = u",";
    }
    return separator == u"," ? text + u"]" : text;
}

inline std::u16string textOf(const host::Path& path) {
    return path.text();
}
inline std::u16string textOf(const project::metadata::MetadataPath& path) {
    return path.string();
}

template <class Path>
Texts textsOf(const std::vector<Path>& paths) {
    Texts texts;
    for (const Path& path : paths)
        texts.push_back(textOf(path));
    return texts;
}

inline Texts sorted(Texts texts) {
    std::sort(texts.begin(), texts.end());
    return texts;
}

/// The user's setting whether what is read-only is made writable.
inline MemorySettings::Values makeWritable(const std::u16string& value) {
    return {{{"korvex.project.metadata", "MakeReadOnlyMetadataWritable"}, value}};
}

/// Takes the write permissions of a file or folder away for as long as it lives.
class WriteProtection {
public:
    explicit WriteProtection(std::filesystem::path path) : path_(std::move(path)) {
        using std::filesystem::perms;
        permissions(path_, perms::owner_write | perms::group_write | perms::others_write,
                    std::filesystem::perm_options::remove);
    }

    ~WriteProtection() {
        std::error_code ignored;
        permissions(path_, std::filesystem::perms::owner_write, std::filesystem::perm_options::add, ignored);
    }

    WriteProtection(const WriteProtection&) = delete;
    WriteProtection& operator=(const WriteProtection&) = delete;

private:
    std::filesystem::path path_;
};

/// Whether the owner may write to `path`, whoever the test runs as.
inline bool isOwnerWritable(const std::filesystem::path& path) {
    using std::filesystem::perms;
    return (status(path).permissions() & perms::owner_write) != perms::none;
}

}  // namespace test
