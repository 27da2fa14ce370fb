#include "masterd/request_log.h"
#include "tests/unit/scratch_directory.h"

#include <fcntl.h>
#include <gtest/gtest.h>

namespace {

using masterd::formatRequestLine;
using masterd::RequestLog;

constexpr std::int64_t NOON = 1795176000; // 2026-11-20 12:00 UTC

TEST(FormatRequestLine, HoldsEveryField)
{
    EXPECT_EQ(formatRequestLine({"127.0.0.1", "GET", "/a?b", 200, "h1/id", "abc", ""}, NOON),
              "2026-11-20T12:00:00Z 127.0.0.1 \"GET /a?b\" 200 h1/id abc");
}

TEST(FormatRequestLine, EmptyFieldsAreDashes)
{
    EXPECT_EQ(formatRequestLine({"", "", "", 400, "", "", ""}, NOON),
              "2026-11-20T12:00:00Z - \"- -\" 400 - -");
}

TEST(FormatRequestLine, FaultOfAConnectionStandsAtTheEnd)
{
    EXPECT_EQ(formatRequestLine({"::1", "", "", 0, "", "", "bad certificate"}, NOON),
              "2026-11-20T12:00:00Z ::1 \"- -\" 0 - - bad\\x20certificate");
}

TEST(FormatRequestLine, NoTextCanForgeALine)
{
    const std::string line =
        formatRequestLine({"", "G\"T", "/a\" 200 x\r\n2026 \x1b[31m\xff\\", 404, "", "", ""}, NOON);
    EXPECT_EQ(
        line,
        "2026-11-20T12:00:00Z - \"G\\x22T /a\\x22\\x20200\\x20x\\x0d\\x0a2026\\x20\\x1b[31m\\xff\\x5c\" "
        "404 - -");
}

TEST(FormatRequestLine, LongTargetIsCut)
{
    const std::string line =
        formatRequestLine({"", "GET", '/' + std::string(5000, 'a'), 404, "", "", ""}, NOON);
    EXPECT_NE(line.find("aaa...\" 404"), std::string::npos);
    EXPECT_LT(line.size(), 600U);
}

TEST(RequestLog, AppendsALineForEachRequest)
{
    const tests::ScratchDirectory folder;
    const RequestLog log(tq::FileDescriptor(
        open(folder.file("log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)));
    log.write({"a", "GET", "/1", 200, "", "", ""});
    log.write({"b", "GET", "/2", 404, "", "", ""});
    const std::string text = tests::readText(folder.file("log"));
    EXPECT_NE(text.find(" a \"GET /1\" 200 - -\n"), std::string::npos) << text;
    EXPECT_NE(text.find(" b \"GET /2\" 404 - -\n"), std::string::npos) << text;
}

TEST(RequestLog, FullDiskIsNoFailure)
{
    const RequestLog log(tq::FileDescriptor(open("/dev/full", O_WRONLY | O_CLOEXEC)));
    EXPECT_NO_THROW(log.write({"a", "GET", "/1", 200, "", "", ""}));
    EXPECT_NO_THROW(RequestLog().write({"a", "GET", "/1", 200, "", "", ""}));
}

} // namespace
