#include "cmd/attempt_wait.h"

#include <cerrno>
#include <ctime>
#include <gtest/gtest.h>
#include <vector>

namespace {

std::vector<timespec> sleeps;
int sleepResult = 0;

} // namespace

extern "C" int nanosleep(const timespec* duration, timespec* /*remaining*/)
{
    sleeps.push_back(*duration);
    errno = EINTR;
    return sleepResult;
}

namespace {

TEST(AttemptWait, IsOneSleepOfWholeSeconds)
{
    sleeps.clear();
    sleepResult = 0;
    TQCLNTDB::waitBeforeNextAttempt(10);
    ASSERT_EQ(sleeps.size(), 1U);
    EXPECT_EQ(sleeps[0].tv_sec, 10);
    EXPECT_EQ(sleeps[0].tv_nsec, 0);
}

TEST(AttemptWait, IsNotResumedAfterAnInterruption)
{
    sleeps.clear();
    sleepResult = -1;
    TQCLNTDB::waitBeforeNextAttempt(10);
    EXPECT_EQ(sleeps.size(), 1U);
}

} // namespace
