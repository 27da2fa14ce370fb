#include "sysinfo/log_message.h"

#include "tests/fakes/platform/fake_platform.h"

#include <gmock/gmock.h>

namespace {

using fakes::LogEntry;
using fakes::platform;
using SYSINFO_NAMESPACE::logMessage;

TEST(LogMessage, HandsOverLevelTextAndFunction)
{
    fakes::reset();
    logMessage(LogLevel::warning, "Some::function", "a %s b %ld", "text", 7L);
    EXPECT_THAT(platform().log, testing::ElementsAre(LogEntry{8, "a text b 7", "Some::function"}));
}

TEST(LogMessage, TextIsCutTo1024Bytes)
{
    for (const std::size_t length : {1023U, 1024U, 1025U, 100000U}) {
        fakes::reset();
        logMessage(LogLevel::progress, "f", "%s", std::string(length, 'x').c_str());
        EXPECT_EQ(platform().log.at(0).text, std::string(std::min<std::size_t>(length, 1024), 'x'));
    }
}

} // namespace
