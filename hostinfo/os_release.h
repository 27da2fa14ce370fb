/// What the distribution's release files say, line by line. Pure functions on text.
///
/// The three parsers look for their key anywhere in the line and give nothing for a line without it. They
/// throw std::out_of_range, on purpose, when a line ends right at its key: there is no value to read.
#pragma once

#include <optional>
#include <string>

namespace TQCLNTDB {

/// Display name on a line of an os-release style file: the text one character after PRETTY_NAME, without the
/// quotes and blanks around it.
std::optional<std::string> parseDisplayName(const std::string& line);

/// Release on a line of an os-release style file: the text one character after VERSION_ID, without the quotes
/// and blanks around it.
std::optional<std::string> parseVersionId(const std::string& line);

/// Release on a line such as "CentOS Linux release 7.9.2009 (Core)": the text one character after "release",
/// up to the next blank. Nothing for a line without any blank.
std::optional<std::string> parseReleaseWord(const std::string& line);

/// A version of three or more parts without its last five characters, which are taken for a dot and a build
/// number of four digits; empty for a shorter text. Nothing for a version of fewer parts.
std::optional<std::string> cutBuildNumber(const std::string& version);

} // namespace TQCLNTDB
