#include "sysinfo/line_value.h"

#include "tests/unit/long_line.h"

#include <gtest/gtest.h>

namespace {

using SYSINFO_NAMESPACE::valueAfterLast;
using SYSINFO_NAMESPACE::withoutLeadingBlanks;

TEST(ValueAfterLast, BeginsTwoCharactersBehindTheSeparator)
{
    EXPECT_EQ(valueAfterLast(':', "vendor_id\t: GenuineIntel\n"), "GenuineIntel");
    EXPECT_EQ(valueAfterLast(':', "MemTotal:        4036680 kB\n"), "       4036680 kB");
    EXPECT_EQ(valueAfterLast('=', "client_name=h1\n"), "1") << "one character is skipped, whatever it is";
}

TEST(ValueAfterLast, LastSeparatorWins)
{
    EXPECT_EQ(valueAfterLast(':', "a: b: c\n"), "c");
    EXPECT_EQ(valueAfterLast(':', "a: b:\n"), "");
}

TEST(ValueAfterLast, EndsAtEachKindOfLineEnd)
{
    for (const char* end : {"\n", "\r\n", "\r", "\f: x", "\n: x", ""})
        EXPECT_EQ(valueAfterLast(':', std::string("key: value") + end), "value");
    EXPECT_EQ(valueAfterLast(':', std::string("key: value\0: x", 14)), "value");
}

TEST(ValueAfterLast, TrailingBlanksStay)
{
    EXPECT_EQ(valueAfterLast('=', "a = b  \n"), "b  ");
}

TEST(ValueAfterLast, ValueThatWouldBeginBeyondTheEndIsEmpty)
{
    for (const char* line : {"key:", "key:\n", "key: ", "key: \n", "key:x\n", ":"})
        EXPECT_EQ(valueAfterLast(':', line), "") << line;
}

TEST(ValueAfterLast, LineWithoutTheSeparatorHasNoValue)
{
    for (const char* line : {"", "\n", "key = value\n", "\n: x", "\r: x"})
        EXPECT_EQ(valueAfterLast(':', line), std::nullopt) << line;
}

TEST(ValueAfterLast, LineWithoutAnEndWithin2048CharactersIsIgnored)
{
    const std::string key = "key: ";
    EXPECT_EQ(valueAfterLast(':', key + std::string(2042, 'x') + "\n"), std::string(2042, 'x'));
    EXPECT_EQ(valueAfterLast(':', key + std::string(2043, 'x') + "\n"), std::nullopt);
    EXPECT_EQ(valueAfterLast(':', key + longLine('x')), std::nullopt);
}

TEST(ValueAfterLast, BytesThatAreNoTextAreKept)
{
    EXPECT_EQ(valueAfterLast(':', "key: \xff\xfe\x01\n"), "\xff\xfe\x01");
}

TEST(WithoutLeadingBlanks, DropsBlanksOnlyAndOnlyInFront)
{
    EXPECT_EQ(withoutLeadingBlanks("   a b "), "a b ");
    EXPECT_EQ(withoutLeadingBlanks("\ta"), "\ta");
    EXPECT_EQ(withoutLeadingBlanks("   "), "");
    EXPECT_EQ(withoutLeadingBlanks(""), "");
}

} // namespace
