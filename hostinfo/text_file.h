/// System files: whether they are there, and their text as lines.
#pragma once

#include <optional>
#include <sstream>
#include <string>

namespace TQCLNTDB {

/// Whether a path, or what a link there leads to, has attributes that can be read.
bool exists(const char* path);

/// Text of a file, to be read line by line: of a larger one the first 16 MiB, and after a read error what was
/// read before it. Absent when the file cannot be opened or is no regular one (a link may lead to it).
std::optional<std::istringstream> openLines(const std::string& path);

} // namespace TQCLNTDB
