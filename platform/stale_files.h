/// Names for temporary files that tell which process made them, and the removal of those left by killed ones.
#pragma once

#include <string>
#include <string_view>

namespace tq {

/// "prefix<process id>.<32 hexadecimal digits>": unique, and recognised by removeStaleFiles.
std::string uniqueFileName(std::string_view prefix);

/// How long a file has to lie unwritten before removeStaleFiles takes it for left behind.
inline constexpr int STALE_AFTER_SECONDS = 60;

/// Removes the regular files of a directory whose names uniqueFileName made with this prefix, whose process
/// is gone, and that were last written more than STALE_AFTER_SECONDS ago: a process of another container that
/// shares the directory looks gone from here while it still writes. A name with this process's own id was
/// left by an earlier process of that id. A directory that cannot be read is left as it is.
void removeStaleFiles(const std::string& directory, std::string_view prefix);

} // namespace tq
