/// Names for temporary files that tell which process made them, and the removal of those left by killed ones.
#pragma once

#include <string>
#include <string_view>

namespace tq {

/// "prefix<process id>.<32 hexadecimal digits>": unique, and recognised by removeStaleFiles.
std::string uniqueFileName(std::string_view prefix);

/// Removes the regular files of a directory whose names uniqueFileName made with this prefix, whose process
/// is gone, and that were last written more than `olderThanSeconds` ago (-1: whenever). A name with this
/// process's own id was left by an earlier process of that id: call it before making the first name.
/// A directory that cannot be read is left as it is.
void removeStaleFiles(const std::string& directory, std::string_view prefix, int olderThanSeconds);

} // namespace tq
