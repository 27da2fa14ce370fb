/// A close that tells of an error, as a full network disk does: the C library's fclose() is replaced in this
/// program.
#pragma once

namespace fakes {

/// The next fclose() closes its file and then says that it failed, once.
void failNextClose();

} // namespace fakes
