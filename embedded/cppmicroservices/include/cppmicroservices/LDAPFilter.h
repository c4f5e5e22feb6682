// A condition on the properties of a service, written as an LDAP search filter.
//
//   filter     = "(" ( "&" 1*filter / "|" 1*filter / "!" filter / comparison ) ")"
//   comparison = key ( "=" / "~=" / "<=" / ">=" ) value
//
// "=" takes "*" in the value for any text, and "(key=*)" asks for the property's presence; "~=" ignores case and
// spaces. Keys are compared without regard to case. Texts, lists of texts (one that matches is enough), bools, integers
// and floating-point numbers can be compared; a value of another type is only present. A text in the filter that is no
// number matches no number.
//
// The form is that of RFC 4515, except for two things that CppMicroServices does differently: "\" stands before a
// character to be taken literally (not before two hexadecimal digits), and balanced parentheses may stand in a value.
// Left out are extensible matching (":=") and nesting deeper than 200.
//
// Threads: a filter does not change; several threads may use the same one.
#pragma once

#include <memory>
#include <string>

#include "cppmicroservices/GlobalConfig.h"

namespace cppmicroservices {
inline namespace project_metadata {

class ServiceReferenceBase;

namespace detail {
struct LdapExpression;
}

class US_Framework_EXPORT LDAPFilter {
public:
    /// The empty filter: its text is empty, and it matches nothing.
    LDAPFilter() = default;

    /// Throws std::invalid_argument, with the cause and the rest of the text from there, when `filter` is malformed.
    LDAPFilter(const std::string& filter);

    /// Whether this is not the empty filter.
    explicit operator bool() const { return expression_ != nullptr; }

    bool Match(const ServiceReferenceBase& reference) const;

    /// The filter's text, without the spaces that do not matter.
    std::string ToString() const;

    /// Whether the texts are the same.
    bool operator==(const LDAPFilter& other) const { return ToString() == other.ToString(); }

private:
    std::shared_ptr<const detail::LdapExpression> expression_;
};

}  // namespace project_metadata
}  // namespace cppmicroservices
