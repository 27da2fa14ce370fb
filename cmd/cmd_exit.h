/// The one way out of a run that did not succeed.
#pragma once

namespace TQCLNTDB {

/// Logs the status and ends the process with it; with 252 for a status above 255 or below 0.
///
/// Writes "EXIT STATUS <status>: <text>" at level 2 and, for a status other than 0, a second entry at level
/// 16 with the text in the caller's language. The second begins with the whole text of the first.
[[noreturn]] void CmdExit(int status);

} // namespace TQCLNTDB
