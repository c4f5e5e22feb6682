/// What the tests of the library have in common.
#pragma once

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
#include "tests/support/Settings.hpp"
#include "tests/support/TempFolder.hpp"
#include "tests/support/UnprivilegedUser.hpp"

namespace test {

using Texts = std::vector<std::u16string>;
using Paths = std::vector<host::Path>;

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
/// `messageOfNested`, whether it takes a cause or not. Other exceptions, also nested ones, pass on and fail the test.
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
        }
    }
    return arguments;
}

/// A node with everything below it on one line, an attribute as {key=value} and a child in brackets.
inline std::u16string render(const project::metadata::MetadataNode& node) {
    std::u16string text = node.getName();
    for (const std::u16string& key : node.getAttributeKeys())
        text += u"{" + key + u"=" + node.get(key) + u"}";
    for (const auto& child : node.getChildNodes())
        text += u"[" + render(*child) + u"]";
    return text;
}

/// The user's setting whether what is read-only is made writable.
inline MemorySettings::Values makeWritable(const std::u16string& value) {
    return {{{"korvex.project.metadata", "MakeReadOnlyMetadataWritable"}, value}};
}

/// Takes the owner's write permission from a file or folder.
inline void protect(const std::filesystem::path& path) {
    permissions(path, std::filesystem::perms::owner_write, std::filesystem::perm_options::remove);
}

/// Whether the owner may write to `path`, whoever the test runs as.
inline bool isOwnerWritable(const std::filesystem::path& path) {
    return (status(path).permissions() & std::filesystem::perms::owner_write) != std::filesystem::perms::none;
}

}  // namespace test
