/// How errors are raised: what they carry, as what they are caught, and what is nested in them.
#include "project/metadata/MetadataErrors.hpp"

#include <typeinfo>

#include "tests/metadata/Helpers.hpp"

using namespace project::metadata;
using namespace test;

namespace {

/// What `action` throws, while `cause` is being handled if there is one.
template <class Action>
std::exception_ptr thrownBy(Action&& action, const std::exception_ptr& cause = nullptr) {
    try {
        if (!cause)
            action();
        try {
            std::rethrow_exception(cause);
        } catch (const std::exception&) {
            action();
        }
    } catch (...) {
        return std::current_exception();
    }
    return nullptr;
}

/// A handler for `Handler` catches `thrown`, and finds the same in it as in `expected`.
template <class Handler>
void checkCaught(const std::exception_ptr& thrown, const project::exception::ProjectException& expected,
                 const std::exception_ptr& cause) {
    try {
        std::rethrow_exception(thrown);
    } catch (const Handler& error) {
        EXPECT_EQ(typeid(error), typeid(expected));
        const auto* nested = dynamic_cast<const std::nested_exception*>(&error);
        EXPECT_EQ(nested != nullptr, cause != nullptr) << "no nested part at all, not even an empty one";
        EXPECT_EQ(nested ? nested->nested_ptr() : nullptr, cause);
        EXPECT_STREQ(dynamic_cast<const std::exception&>(error).what(), expected.what());
    }
}

/// Raises an `Error` outside of any handler and in one, copies it, and looks at both in every handler.
template <class Error, class... Arguments>
void checkError(const std::string& key, const Arguments&... arguments) {
    for (const auto& cause : {std::exception_ptr(), std::make_exception_ptr(std::runtime_error("cause"))}) {
        const std::exception_ptr thrown = thrownBy([&] { raise<Error>(arguments...); }, cause);
        try {
            std::rethrow_exception(thrown);
        } catch (const Error& error) {
            // In this handler, so that a nested part that was not there before would show.
            const std::exception_ptr copy = thrownBy([&] { error.clone()->rethrow(); });
            EXPECT_EQ(error.GetID(), "KORVEX:project:metadata:" + key);
            EXPECT_EQ(argumentsOf(error), (Texts{arguments...}));
            EXPECT_GT(error.getStackTrace().size(), 1u);
            for (const std::exception_ptr& each : {thrown, copy}) {
                checkCaught<project::exception::ProjectException>(each, error, cause);
                checkCaught<std::exception>(each, error, cause);
                checkCaught<host::UserException>(each, error, cause);
            }
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

TEST(ErrorsTest, anExceptionOfSomebodyElseCarriesATextThatItsCopiesKeep) {
    struct Error : computils::exception::StackTraceRecordingException {
        explicit Error(const std::u16string& text) { message_ = text; }
    };
    const Error error(u"text");
    EXPECT_EQ(Error(error).getMessage(), u"text");
    EXPECT_EQ(project::exception::ProjectException().getMessage(), u"");
}

TEST(ErrorsTest, theCauseIsTheMessageOfTheExceptionBeingHandled) {
    const PutMetadataKeyFailure cause(u"1a");
    try {
        throw cause;
    } catch (...) {
        EXPECT_EQ(getCauseMessage(), cause.ToUstring());
    }
    EXPECT_EQ(getCauseMessage(), u"") << "no exception is being handled any more";
}
