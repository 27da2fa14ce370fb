/// The system probes as unit tests see them: the answer of GetClientSystemInfo is set by the test.
#pragma once

#include "sysinfo/system_info.h"

#include <functional>

namespace fakes {

struct Sysinfo {
    int calls = 0;
    int status = 0;                                ///< what the call returns; nothing is handed out unless 0
    SYSINFO_NAMESPACE::TquClientSystemData record; ///< what it hands out
    std::function<void()> onCall;                  ///< called before the answer, for example to throw
};

Sysinfo& sysinfo();
void resetSysinfo();

} // namespace fakes
