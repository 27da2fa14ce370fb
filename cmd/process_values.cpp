#include "cmd/process_values.h"

namespace TQCLNTDB {

const char* progname = nullptr;
std::string CmdName;
std::string MasterServer;
int debugFD = -1;
char lc_messages[LOCALE_NAME_SIZE];
char lc_ctype[LOCALE_NAME_SIZE];
char lc_time[LOCALE_NAME_SIZE];
char lc_collate[LOCALE_NAME_SIZE];
char lc_numeric[LOCALE_NAME_SIZE];

} // namespace TQCLNTDB
