#include "platform/log_entry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <sstream>
#include <unistd.h>

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

const std::chrono::system_clock::time_point TIME{std::chrono::milliseconds(1795162242123)};

std::string entryOf(std::string_view text)
{
    return tq::formatLogEntry(TIME, 16, "context", text);
}

/// What stands behind "context: ", without the entry's line end.
std::string shown(std::string_view text)
{
    const std::string entry = entryOf(text);
    const std::string before = "<16> context: ";
    const std::size_t begin = entry.find(before) + before.size();
    return entry.substr(begin, entry.size() - begin - 1);
}

class LogEntry : public testing::Test {
protected:
    void SetUp() override
    {
        setenv("TZ", "UTC0", 1);
        tzset();
    }
};

TEST_F(LogEntry, HasTimeProcessLevelContextAndText)
{
    EXPECT_EQ(entryOf("Unable to open"),
              "2026-11-20 08:10:42.123 [" + std::to_string(getpid()) + "] <16> context: Unable to open\n");
}

TEST_F(LogEntry, TimeIsLocal)
{
    setenv("TZ", "XST-2", 1);
    tzset();
    EXPECT_THAT(entryOf("x"), StartsWith("2026-11-20 10:10:42.123 ["));
}

TEST_F(LogEntry, TimeBefore1970HasItsMilliseconds)
{
    const std::chrono::system_clock::time_point early{std::chrono::milliseconds(-1)};
    EXPECT_THAT(tq::formatLogEntry(early, 2, "c", "t"), StartsWith("1969-12-31 23:59:59.999 ["));
}

TEST_F(LogEntry, EmptyTextAndContextKeepTheForm)
{
    EXPECT_THAT(tq::formatLogEntry(TIME, 2, "", ""), EndsWith("] <2> : \n"));
}

struct Shown {
    const char* what;
    std::string text;
    std::string expected;
};

TEST_F(LogEntry, ShowsTextsSoThatNoneCanForgeOrDisguiseAnEntry)
{
    using namespace std::string_literals;
    const std::vector<Shown> cases{
        {"line ends at the end are dropped", "text\r\n\n\r\n", "text"},
        {"only line ends", "\n\n\n", ""},
        {"a following line begins with a tab", "one\ntwo\n\nthree", "one\n\ttwo\n\t\n\tthree"},
        {"a carriage return inside", "one\r\ntwo\rthree", "one\\x0d\n\ttwo\\x0dthree"},
        {"a tab of the text's own", "a\tb\n\tc", "a\\x09b\n\t\\x09c"},
        {"NUL, escape, backspace, delete", "\0a\x1b[2J\b\x7f"s, "\\x00a\\x1b[2J\\x08\\x7f"},
        {"vertical tab and form feed", "\v\f", "\\x0b\\x0c"},
        {"UTF-8 of 2, 3 and 4 bytes stays", "größe €\xf0\x9f\x98\x80", "größe €\xf0\x9f\x98\x80"},
        {"highest code point", "\xf4\x8f\xbf\xbf", "\xf4\x8f\xbf\xbf"},
        {"C1 controls",
         "\xc2\x80\xc2\x9b"
         "2J\xc2\x9f\xc2\xa0",
         "\\xc2\\x80\\xc2\\x9b2J\\xc2\\x9f\xc2\xa0"},
        {"next line character",
         "a\xc2\x85"
         "b",
         "a\\xc2\\x85b"},
        {"line and paragraph separators", "\xe2\x80\xa8\xe2\x80\xa9", "\\xe2\\x80\\xa8\\xe2\\x80\\xa9"},
        {"bidirectional overrides", "\xe2\x80\xaa\xe2\x80\xae", "\\xe2\\x80\\xaa\\xe2\\x80\\xae"},
        {"bidirectional isolates", "\xe2\x81\xa6\xe2\x81\xa9", "\\xe2\\x81\\xa6\\xe2\\x81\\xa9"},
        {"direction marks", "\xe2\x80\x8e\xe2\x80\x8f\xd8\x9c", "\\xe2\\x80\\x8e\\xe2\\x80\\x8f\\xd8\\x9c"},
        {"their neighbours stay", "\xe2\x80\x8d\xe2\x80\xaf\xe2\x81\xaa\xd8\x9b",
         "\xe2\x80\x8d\xe2\x80\xaf\xe2\x81\xaa\xd8\x9b"},
        {"a lone continuation byte", "a\x80z", "a\\x80z"},
        {"bytes that never occur", "\xc0\xc1\xf5\xff", "\\xc0\\xc1\\xf5\\xff"},
        {"overlong slash and NUL", "\xc0\xaf\xe0\x80\x80\xf0\x80\x80\xaf",
         "\\xc0\\xaf\\xe0\\x80\\x80\\xf0\\x80\\x80\\xaf"},
        {"a lone surrogate", "\xed\xa0\x80", "\\xed\\xa0\\x80"},
        {"beyond the highest code point", "\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},
        {"a sequence that ends early", "\xe2\x82 x \xf0\x9f\x98", "\\xe2\\x82 x \\xf0\\x9f\\x98"},
        {"a sequence broken by a line end", "\xe2\n\x82", "\\xe2\n\t\\x82"},
        {"a backslash stays", "C:\\x0a", "C:\\x0a"},
    };
    for (const Shown& one : cases)
        EXPECT_EQ(shown(one.text), one.expected) << one.what;
}

TEST_F(LogEntry, ForgedEntryInATextStaysPartOfItsEntry)
{
    const std::string forged = "2026-11-20 08:10:42.123 [1] <2> root: all is well";
    const std::string entry = entryOf("reply:\n" + forged + "\r" + forged + "\n" + forged);
    std::istringstream lines(entry);
    std::string line;
    ASSERT_TRUE(std::getline(lines, line));
    while (std::getline(lines, line))
        EXPECT_EQ(line.front(), '\t') << line;
}

TEST_F(LogEntry, ContextIsOneLine)
{
    EXPECT_THAT(tq::formatLogEntry(TIME, 2, "a\nb\xe2\x80\xae\xff", "t"),
                EndsWith("<2> a\\x0ab\\xe2\\x80\\xae\\xff: t\n"));
}

TEST_F(LogEntry, LongContextIsCutAndCounted)
{
    const std::string entry = tq::formatLogEntry(TIME, 2, std::string(5000, 'c'), "text");
    EXPECT_THAT(entry, EndsWith("> " + std::string(1024, 'c') + ": text [3976 bytes left out]\n"));
}

TEST_F(LogEntry, EntryOfExactlyOneMebibyteIsWhole)
{
    const std::size_t around = entryOf("").size();
    const std::string entry = entryOf(std::string(tq::LOG_ENTRY_MAX_BYTES - around, 'x'));
    EXPECT_EQ(entry.size(), tq::LOG_ENTRY_MAX_BYTES);
    EXPECT_THAT(entry, EndsWith("xxx\n"));
}

/// The bytes left out that an entry names (0 when it names none), and how often its text shows a character.
std::pair<std::size_t, std::size_t> leftOutAndShown(const std::string& entry, char character)
{
    const std::size_t note = entry.rfind(" [");
    char* end = nullptr;
    const std::size_t leftOut = std::strtoul(entry.c_str() + note + 2, &end, 10);
    if (std::string(end) != " bytes left out]\n")
        return {0, 0};
    const std::size_t text = entry.find("context: ") + 9;
    return {leftOut, static_cast<std::size_t>(std::count(entry.begin() + static_cast<std::ptrdiff_t>(text),
                                                         entry.begin() + static_cast<std::ptrdiff_t>(note),
                                                         character))};
}

TEST_F(LogEntry, OneByteMoreIsCutWithANoteOfWhatIsLeftOut)
{
    const std::size_t length = tq::LOG_ENTRY_MAX_BYTES - entryOf("").size() + 1;
    const std::string entry = entryOf(std::string(length, '#'));
    EXPECT_LE(entry.size(), tq::LOG_ENTRY_MAX_BYTES);
    const auto [leftOut, shownBytes] = leftOutAndShown(entry, '#');
    EXPECT_GT(leftOut, 0U);
    EXPECT_LT(leftOut, 100U);
    EXPECT_EQ(leftOut + shownBytes, length);
}

TEST_F(LogEntry, TenMegabytesAreCut)
{
    std::string text;
    text.resize(10'000'000, '#');
    const std::string entry = entryOf(text);
    EXPECT_LE(entry.size(), tq::LOG_ENTRY_MAX_BYTES);
    EXPECT_GT(entry.size(), tq::LOG_ENTRY_MAX_BYTES - 100);
    const auto [leftOut, shownBytes] = leftOutAndShown(entry, '#');
    EXPECT_EQ(leftOut + shownBytes, 10'000'000U);
}

TEST_F(LogEntry, CutFallsBetweenCharacters)
{
    std::string text;
    for (int i = 0; i < 600'000; ++i)
        text += "€";
    const std::string entry = entryOf(text);
    const auto [leftOut, firstBytes] = leftOutAndShown(entry, '\xe2');
    EXPECT_EQ(leftOut % 3, 0U);
    EXPECT_EQ(leftOut + firstBytes * 3, text.size());
    EXPECT_THAT(entry, HasSubstr("€ ["));
}

TEST_F(LogEntry, EscapesCountAsWhatTheyTake)
{
    std::string text;
    text.resize(1'000'000, '\x01');
    const std::string entry = entryOf(text);
    EXPECT_LE(entry.size(), tq::LOG_ENTRY_MAX_BYTES);
    const auto [leftOut, escapes] = leftOutAndShown(entry, '\\');
    EXPECT_EQ(leftOut + escapes, 1'000'000U);
    EXPECT_THAT(entry, HasSubstr("\\x01 ["));
}

TEST_F(LogEntry, EscapesBehindAPlainBeginningAreCutToo)
{
    const std::string plain(1'000'000, '#');
    const std::size_t controls = 40'000;
    const std::string entry = entryOf(plain + std::string(controls, '\x01'));
    EXPECT_LE(entry.size(), tq::LOG_ENTRY_MAX_BYTES);
    EXPECT_GT(entry.size(), tq::LOG_ENTRY_MAX_BYTES - 100);
    EXPECT_THAT(entry, HasSubstr(plain + "\\x01"));
    const auto [leftOut, escapes] = leftOutAndShown(entry, '\\');
    EXPECT_GT(leftOut, 0U);
    EXPECT_EQ(leftOut + escapes, controls);
}

TEST_F(LogEntry, TextsAroundTheRoomForTheNoteAreWhole)
{
    const std::size_t room = tq::LOG_ENTRY_MAX_BYTES - entryOf("").size();
    for (std::size_t length = room - 70; length <= room - 60; ++length) {
        SCOPED_TRACE(length);
        const std::string plain(length, '#');
        EXPECT_EQ(shown(plain + "\x01"), plain + "\\x01");
    }
}

} // namespace
