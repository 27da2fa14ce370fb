/// Values of the process that are set once at start, for every operation of the command to read.
#pragma once

#include <cstddef>
#include <string>

namespace TQCLNTDB {

inline constexpr std::size_t LOCALE_NAME_SIZE = 256;

/// Base name of the program's own path: the log context of the front end. Null until it is known.
extern const char* progname;

/// Copy of `progname`; the beginning of several error texts.
extern std::string CmdName;

/// The master server that the operations on one server talk to; empty until it is resolved.
extern std::string MasterServer;

/// Descriptor of the debug log; negative when none is open. Only the start-up looks at it.
extern int debugFD;

/// The locale's name by category; `lc_messages` chooses the language of status texts, the others are not
/// looked at by this build.
extern char lc_messages[LOCALE_NAME_SIZE];
extern char lc_ctype[LOCALE_NAME_SIZE];
extern char lc_time[LOCALE_NAME_SIZE];
extern char lc_collate[LOCALE_NAME_SIZE];
extern char lc_numeric[LOCALE_NAME_SIZE];

} // namespace TQCLNTDB
