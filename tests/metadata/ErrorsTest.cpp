/// How errors are raised: what they carry, as what they are caught, and what is nested in them.
#include "project/metadata/MetadataErrors.hpp"

#include <system_error>
#include <typeinfo>

#include "tests/metadata/Helpers.hpp"

using namespace project::metadata;
using namespace test;
using project::exception::ProjectException;

namespace {

const host::FileSystemException diskError(host::Path(u"/a/b"), std::make_error_code(std::errc::io_error));

/// An error of the host's own.
struct HostMessage {
    static constexpr const char* catalog = "HOST";
    static constexpr const char* key = "SomeError";
    static constexpr int argumentCount = 1;
};

struct UserError : host::MessageException<HostMessage, std::exception> {
    UserError() : MessageException(u"argument") {}
};

struct UserDiskError : host::FileSystemException, UserError {
    UserDiskError() : FileSystemException(diskError) {}
};

/// What `action` throws.
template <class Action>
std::exception_ptr thrownBy(Action&& action) {
    try {
        action();
    } catch (...) {
        return std::current_exception();
    }
    ADD_FAILURE() << "nothing was thrown";
    return nullptr;
}

/// What `action` throws while `cause` is being handled.
template <class Action>
std::exception_ptr thrownWhileHandling(const std::exception_ptr& cause, Action&& action) {
    try {
        std::rethrow_exception(cause);
    } catch (...) {
        return thrownBy(action);
    }
}

/// Whether a handler for `Handler` catches `thrown`; calls `check` in it.
template <class Handler, class Check>
bool isCaughtAs(const std::exception_ptr& thrown, Check&& check) {
    try {
        std::rethrow_exception(thrown);
    } catch (const Handler& error) {
        check(error);
        return true;
    } catch (...) {
        return false;
    }
}

/// The exception nested in `error`; null if it has no nested part at all, not even an empty one.
template <class Error>
std::exception_ptr nestedIn(const Error& error) {
    const auto* nested = dynamic_cast<const std::nested_exception*>(&error);
    EXPECT_TRUE(!nested || nested->nested_ptr()) << "an empty nested part";
    return nested ? nested->nested_ptr() : nullptr;
}

/// Raises an `Error` outside of any handler and in one, copies it, and looks at all of them in every handler.
template <class Error, class... Arguments>
void checkError(const std::string& key, const Arguments&... arguments) {
    SCOPED_TRACE(key);
    for (const std::exception_ptr& cause :
         {std::exception_ptr(), std::make_exception_ptr(std::runtime_error("cause"))}) {
        const auto action = [&] { raise<Error>(arguments...); };
        const std::exception_ptr thrown = cause ? thrownWhileHandling(cause, action) : thrownBy(action);
        const std::type_info* type = nullptr;
        std::exception_ptr copy;
        EXPECT_TRUE(isCaughtAs<Error>(thrown, [&](const Error& error) {
            type = &typeid(error);
            EXPECT_EQ(*type == typeid(Error), !cause);
            EXPECT_GT(error.getStackTrace().size(), 1u);
            // In this handler, so that a nested part that was not there before would show.
            copy = thrownBy([&] { error.clone()->rethrow(); });
            EXPECT_TRUE(isCaughtAs<Error>(copy, [&](const Error& other) {
                EXPECT_STREQ(other.what(), error.what());
                EXPECT_TRUE(std::equal(other.getStackTrace().begin(), other.getStackTrace().end(),
                                       error.getStackTrace().begin(), error.getStackTrace().end()));
            }));
        }));
        const auto check = [&](const auto& error) {
            EXPECT_EQ(typeid(error), *type);
            EXPECT_EQ(nestedIn(error), cause);
            const auto& message = dynamic_cast<const host::UserException&>(error);
            EXPECT_EQ(message.GetID(), "KORVEX:project:metadata:" + key);
            EXPECT_EQ(message.GetBaseMsgIDObj().catalog, "KORVEX:project:metadata");
            EXPECT_EQ(message.GetBaseMsgIDObj().key, key);
            EXPECT_EQ(argumentsOf(message), (Texts{arguments...}));
        };
        for (const std::exception_ptr& error : {thrown, copy}) {
            EXPECT_TRUE(isCaughtAs<Error>(error, check));
            EXPECT_TRUE(isCaughtAs<ProjectException>(error, check));
            EXPECT_TRUE(isCaughtAs<std::exception>(error, check));
            EXPECT_TRUE(isCaughtAs<host::UserException>(error, check));
        }
    }
}

}  // namespace

TEST(ErrorsTest, everyErrorAndItsCopiesAreCaughtByEachBaseWithMessageAndCause) {
    checkError<ReadOnlyMetadataFailure>("ReadOnlyMetadataFailure", u"/a");
    checkError<MetadataWriteFailure>("MetadataWriteFailure", u"/a", u"because");
    checkError<FailedToMakeMetadataWritable>("FailedToMakeMetadataWritable", u"/a", u"because");
    checkError<ListChildFilesFailure>("ListChildFilesFailure", u"/a", u"because");
    checkError<MetadataReadFailure>("MetadataReadFailure", u"/a", u"");
    checkError<PutMetadataKeyFailure>("PutMetadataKeyFailure", u"1a");
    checkError<PutMetadataValueFailure>("PutMetadataValueFailure", u"\x01");
}

TEST(ErrorsTest, theCauseIsTheMessageOfTheExceptionBeingHandled) {
    const UserError userError;
    const auto causeInHandlerOf = [](const auto& cause) {
        try {
            throw cause;
        } catch (...) {
            return getCauseMessage();
        }
    };

    EXPECT_EQ(getCauseMessage(), u"");
    EXPECT_EQ(causeInHandlerOf(diskError), host::FileSystem::getExceptionMessage(diskError));
    EXPECT_NE(causeInHandlerOf(diskError), u"");
    EXPECT_EQ(causeInHandlerOf(userError), userError.ToUstring());
    EXPECT_NE(causeInHandlerOf(userError), u"");
    EXPECT_EQ(causeInHandlerOf(UserDiskError()), host::FileSystem::getExceptionMessage(diskError))
        << "the file system comes first";
    EXPECT_EQ(causeInHandlerOf(std::runtime_error("text")), u"");
    EXPECT_EQ(causeInHandlerOf(1), u"");
    EXPECT_EQ(getCauseMessage(), u"") << "no exception is being handled any more";
}
