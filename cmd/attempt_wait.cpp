#include "cmd/attempt_wait.h"

#include <ctime>

namespace TQCLNTDB {

void waitBeforeNextAttempt(int seconds)
{
    const timespec duration{seconds, 0};
    nanosleep(&duration, nullptr);
}

} // namespace TQCLNTDB
