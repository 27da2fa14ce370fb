#include "tests/unit/cmd/recorded_waits.h"

#include "cmd/attempt_wait.h"

namespace fakes {

std::vector<int>& waits()
{
    static std::vector<int> recorded;
    return recorded;
}

} // namespace fakes

namespace TQCLNTDB {

void waitBeforeNextAttempt(int seconds)
{
    fakes::waits().push_back(seconds);
}

} // namespace TQCLNTDB
