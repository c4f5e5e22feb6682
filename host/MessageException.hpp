/// Errors that carry a message ID and arguments instead of a text; the text comes from the host's message catalog.
///
/// Error objects do not change once they are made and may be read from any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "host/Export.hpp"
#include "host/Text.hpp"

namespace host {

using MessageArgument = std::variant<std::int64_t, std::string, std::u16string>;

/// Which message, and what to fill in.
struct MessageId {
    std::string catalog;
    std::string key;
    std::vector<MessageArgument> arguments;
};

/// The ID as one text: catalog, ":" and key.
HOST_EXPORT std::string getIdText(const MessageId& id);

/// The sentence that the message catalog holds for `id`, its arguments filled in. An ID that the catalog does not
/// hold gives the ID text and the arguments.
HOST_EXPORT std::u16string getMessageText(const MessageId& id);

/// The interface of all errors with a message for the user. It does not derive from `std::exception`, because the
/// other base of a `MessageException` does.
class HOST_EXPORT UserException {
public:
    virtual ~UserException();

    /// The ID text.
    virtual std::string GetID() const = 0;

    virtual const MessageId& GetBaseMsgIDObj() const = 0;

    /// The message for the user.
    virtual std::u16string ToUstring() const = 0;

    /// A copy of the whole object, with its dynamic type.
    virtual std::unique_ptr<UserException> clone() const = 0;

    /// Throws a copy of the whole object, with its dynamic type.
    [[noreturn]] virtual void rethrow() const = 0;
};

/// The error `E` of a message catalog, which is also a `Base`.
///
/// `E` names the message: `E::catalog`, `E::key` and the number of its arguments, `E::argumentCount`. `Base` derives
/// from `std::exception` and can be default-constructed.
template <class E, class Base>
class HOST_EXPORT MessageException : public UserException, public Base {
public:
    /// Takes exactly the message's arguments, all UTF-16 texts.
    template <class... Arguments>
    explicit MessageException(const std::u16string& first, const Arguments&... others)
        : id_{E::catalog, E::key, {first, std::u16string(others)...}},
          idText_(getIdText(id_)),
          what_(toUtf8(getMessageText(id_))) {
        static_assert(1 + sizeof...(others) == E::argumentCount, "wrong number of arguments for this message");
    }

    std::string GetID() const override { return idText_; }
    const MessageId& GetBaseMsgIDObj() const override { return id_; }
    std::u16string ToUstring() const override { return getMessageText(id_); }
    const char* what() const noexcept override { return what_.c_str(); }

    std::unique_ptr<UserException> clone() const override { return std::make_unique<MessageException>(*this); }
    [[noreturn]] void rethrow() const override { throw MessageException(*this); }

private:
    MessageId id_;
    std::string idText_;
    std::string what_;
};

}  // namespace host
