/// Rules for the texts that the cluster manager's tools print. Pure; any text gives a value.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace libclusterinfo {

/// The part of a line before the first of these characters; all of it when none occurs.
std::string textBefore(std::string_view line, std::string_view stops);

/// Domain of a host name: what follows its first dot. A name that begins with a dot keeps `current`; one
/// without any dot is its own domain, which the records of such hosts have always held.
std::string domainOf(const std::string& hostName, const std::string& current);

/// Third word of a line, words being separated by white space; absent when there are fewer.
std::optional<std::string> thirdWord(const std::string& line);

/// Whether a text has exactly three dots, which is how addresses are told apart.
bool hasThreeDots(std::string_view address);

} // namespace libclusterinfo
