/// The seven errors of the library, and the one routine that raises them.
///
/// An error can be caught by its own type, as a `project::exception::ProjectException`, as a `std::exception` and as a
/// `host::UserException`. What it means is written beside its name below; the sentence for the user is in the host's
/// message catalog. Errors do not change once they are raised and may be read from any thread.
///
/// What a user stops ends with a `host::InterruptedException`, which is none of them.
#pragma once

#include <exception>
#include <memory>
#include <string>

#include "host/MessageException.hpp"
#include "project/Export.hpp"
#include "project/exception/ProjectException.hpp"

namespace KORVEX::project::metadata {

/// What the messages of the library have in common.
template <int count>
struct MetadataMessage {
    static constexpr const char* catalog = "KORVEX:project:metadata";
    static constexpr int argumentCount = count;
};

struct PROJECT_METADATA_EXPORT ReadOnlyMetadataFailure : MetadataMessage<1> {
    static constexpr const char* key = "ReadOnlyMetadataFailure";
};
struct PROJECT_METADATA_EXPORT MetadataWriteFailure : MetadataMessage<2> {
    static constexpr const char* key = "MetadataWriteFailure";
};
struct PROJECT_METADATA_EXPORT FailedToMakeMetadataWritable : MetadataMessage<2> {
    static constexpr const char* key = "FailedToMakeMetadataWritable";
};
struct PROJECT_METADATA_EXPORT ListChildFilesFailure : MetadataMessage<2> {
    static constexpr const char* key = "ListChildFilesFailure";
};
struct PROJECT_METADATA_EXPORT MetadataReadFailure : MetadataMessage<2> {
    static constexpr const char* key = "MetadataReadFailure";
};
struct PROJECT_METADATA_EXPORT PutMetadataKeyFailure : MetadataMessage<1> {
    static constexpr const char* key = "PutMetadataKeyFailure";
};
struct PROJECT_METADATA_EXPORT PutMetadataValueFailure : MetadataMessage<1> {
    static constexpr const char* key = "PutMetadataValueFailure";
};

}  // namespace KORVEX::project::metadata

namespace project::metadata {

namespace detail {

template <class Message>
using MetadataError = host::MessageException<Message, ::project::exception::ProjectException>;

/// `Error` together with the exception in flight, as `std::throw_with_nested` would combine them; but its copies keep
/// the nested exception too.
template <class Error>
class PROJECT_METADATA_EXPORT NestedError final : public Error, public std::nested_exception {
public:
    explicit NestedError(const Error& error) : Error(error) {}

    std::unique_ptr<host::UserException> clone() const override { return std::make_unique<NestedError>(*this); }
    [[noreturn]] void rethrow() const override { throw NestedError(*this); }
};

}  // namespace detail

/// A file or folder is read-only and could not be made writable. Arguments: the path.
using ReadOnlyMetadataFailure = detail::MetadataError<KORVEX::project::metadata::ReadOnlyMetadataFailure>;

/// A file or folder could not be written, made or removed. Arguments: the path, the cause.
using MetadataWriteFailure = detail::MetadataError<KORVEX::project::metadata::MetadataWriteFailure>;

/// The write permission could not be given. Arguments: the path, the cause.
using FailedToMakeMetadataWritable = detail::MetadataError<KORVEX::project::metadata::FailedToMakeMetadataWritable>;

/// A folder could not be listed. Arguments: the folder, the cause.
using ListChildFilesFailure = detail::MetadataError<KORVEX::project::metadata::ListChildFilesFailure>;

/// A file could not be read as metadata. Arguments: the path, the cause.
using MetadataReadFailure = detail::MetadataError<KORVEX::project::metadata::MetadataReadFailure>;

/// An attribute key is no XML name. Arguments: the key.
using PutMetadataKeyFailure = detail::MetadataError<KORVEX::project::metadata::PutMetadataKeyFailure>;

/// An attribute value holds characters that XML cannot. Arguments: the value.
using PutMetadataValueFailure = detail::MetadataError<KORVEX::project::metadata::PutMetadataValueFailure>;

/// The text of the exception that is being handled: a file system error's message, or the message of a
/// `host::UserException`. Empty for any other exception, and when none is being handled.
PROJECT_METADATA_EXPORT std::u16string getCauseMessage();

/// Throws `Error(arguments...)`. While an exception is being handled, it is nested in the error thrown, where
/// `std::rethrow_if_nested` finds it; otherwise the error has no nested part at all.
template <class Error, class... Arguments>
[[noreturn]] void raise(const Arguments&... arguments) {
    const Error error(arguments...);
    if (std::current_exception())
        throw detail::NestedError<Error>(error);
    throw error;
}

}  // namespace project::metadata
