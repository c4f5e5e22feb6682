// A value of any copyable type that can be written to a stream, as service properties hold it.
//
// Threads: like a standard value; one thread may change an Any while no other uses it.
#pragma once

#include <any>
#include <list>
#include <map>
#include <ostream>
#include <set>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "cppmicroservices/GlobalConfig.h"

namespace cppmicroservices {
inline namespace project_metadata {

class Any;

namespace detail {

/// What CppMicroServices can write as text, and therefore takes: what can be written to a stream, and containers of it.
template <class T, class = void>
struct IsWritable : std::is_same<T, Any> {};
template <class T>
struct IsWritable<T, std::void_t<decltype(std::declval<std::ostream&>() << std::declval<const T&>())>>
    : std::true_type {};
template <class T>
struct IsWritable<std::vector<T>> : IsWritable<T> {};
template <class T>
struct IsWritable<std::list<T>> : IsWritable<T> {};
template <class T>
struct IsWritable<std::set<T>> : IsWritable<T> {};
template <class Key, class T>
struct IsWritable<std::map<Key, T>> : IsWritable<T> {};

}  // namespace detail

class Any {
public:
    /// An empty value.
    Any() = default;

    /// A copy of `value`, whose type, or that of its elements, can be written to a std::ostream. A text is a
    /// std::string here: a string literal does not compile.
    template <class T, class = std::enable_if_t<!std::is_same_v<Any, std::decay_t<T>>>>
    Any(T&& value) : value_(std::forward<T>(value)) {
        static_assert(!std::is_array_v<std::remove_reference_t<T>>, "write std::string(\"...\")");
        static_assert(detail::IsWritable<std::decay_t<T>>::value, "the type has no operator<< for std::ostream");
    }

    bool Empty() const { return !value_.has_value(); }

    /// The type of the value, typeid(void) when empty.
    const std::type_info& Type() const { return value_.type(); }

private:
    template <class T>
    friend const T* any_cast(const Any* operand);

    std::any value_;
};

/// Thrown by any_cast for a value of another type.
class BadAnyCastException : public std::bad_cast {
public:
    const char* what() const noexcept override { return "any_cast: the value is of another type"; }
};

/// The value inside, null when it is of another type than T.
template <class T>
const T* any_cast(const Any* operand) {
    return operand ? std::any_cast<T>(&operand->value_) : nullptr;
}

/// The value inside, by reference. Throws BadAnyCastException when it is of another type than T.
template <class T>
const T& ref_any_cast(const Any& operand) {
    if (const auto* value = any_cast<T>(&operand))
        return *value;
    throw BadAnyCastException();
}

/// The same, as a copy.
template <class T>
T any_cast(const Any& operand) {
    return ref_any_cast<T>(operand);
}

}  // namespace project_metadata
}  // namespace cppmicroservices
