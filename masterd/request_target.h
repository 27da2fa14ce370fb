/// The target of a request line, taken apart.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace masterd {

/// "/a/b%20c/?query". The path is cut at its slashes before anything is decoded, so that an encoded slash or
/// NUL stays inside its segment and cannot lead to another resource; "." and ".." mean nothing.
struct RequestTarget {
    std::vector<std::string> segments; ///< decoded; {"a", "b c", ""} here: a last slash leaves an empty one
    std::string query;                 ///< decoded; empty when there is none
};

/// Absent for a text that does not begin with "/", or with "%" not followed by two hexadecimal digits.
/// "+" in the query is a blank. A "#" is a character like any other.
std::optional<RequestTarget> parseRequestTarget(std::string_view target);

/// The name that a list's query asks for: "filter=hostName eq '<name>'", where the name is all that stands
/// between the first and the last quote. Absent for any other query.
std::optional<std::string> parseHostNameFilter(std::string_view query);

} // namespace masterd
