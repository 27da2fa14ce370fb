#include "platform/config_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// Entries as "line:KEY=value", faults as "line:reason".
std::vector<std::string> entriesOf(std::string_view text)
{
    std::vector<std::string> entries;
    for (const tq::ConfigEntry& entry : tq::parseConfigText(text).entries)
        entries.push_back(std::to_string(entry.line) + ":" + entry.key + "=" + entry.value);
    return entries;
}

std::vector<std::string> faultsOf(std::string_view text)
{
    std::vector<std::string> faults;
    for (const tq::ConfigFault& fault : tq::parseConfigText(text).faults)
        faults.push_back(std::to_string(fault.line) + ":" + fault.reason);
    return faults;
}

} // namespace

TEST(ConfigText, BlanksAroundKeyAndValueAreDropped)
{
    EXPECT_THAT(entriesOf("A = b\nC=d\n\t E \t=\t f g \t\n"), ElementsAre("1:A=b", "2:C=d", "3:E=f g"));
}

TEST(ConfigText, KeysHaveNoCase)
{
    EXPECT_THAT(entriesOf("server = Master1.Example"), ElementsAre("1:SERVER=Master1.Example"));
}

TEST(ConfigText, CommentsAndEmptyLinesAreSkippedAndCounted)
{
    EXPECT_THAT(entriesOf("# A = b\n\n   \n  # C = d\n#\nE = f # g\n"), ElementsAre("6:E=f # g"));
    EXPECT_THAT(faultsOf("# A = b\n\n   \n#\n"), IsEmpty());
}

TEST(ConfigText, FirstEqualsSignSeparates)
{
    EXPECT_THAT(entriesOf("A = b = c\nD==\n"), ElementsAre("1:A=b = c", "2:D=="));
}

TEST(ConfigText, EmptyValueIsAValue)
{
    EXPECT_THAT(entriesOf("A =\nB = \t \n"), ElementsAre("1:A=", "2:B="));
}

TEST(ConfigText, EmptyTextAndMissingLastLineEnd)
{
    EXPECT_THAT(entriesOf(""), IsEmpty());
    EXPECT_THAT(entriesOf("\n\n"), IsEmpty());
    EXPECT_THAT(entriesOf("A = b"), ElementsAre("1:A=b"));
}

TEST(ConfigText, WindowsLineEndsAndByteOrderMarkAreNoPartOfTheText)
{
    EXPECT_THAT(entriesOf("\xEF\xBB\xBFSERVER = a\r\nB = c\r\n\r\n"), ElementsAre("1:SERVER=a", "2:B=c"));
    EXPECT_THAT(entriesOf("\xEF\xBB"), IsEmpty());
}

TEST(ConfigText, DamagedLinesAreFaultsWithTheirNumberAndTheRestIsRead)
{
    const std::string text("no separator\n= value\n  = value\nA\0B = c\nD = e\0f\nG = h\n", 53);
    EXPECT_THAT(entriesOf(text), ElementsAre("6:G=h"));
    EXPECT_THAT(faultsOf(text),
                ElementsAre("1:has no '='", "2:has no key before the '='", "3:has no key before the '='",
                            "4:holds a NUL character", "5:holds a NUL character"));
}

TEST(ConfigText, TenMegabytesOnOneLine)
{
    const std::string filler(10'000'000, 'x');
    EXPECT_THAT(faultsOf(filler), ElementsAre("1:has no '='"));
    EXPECT_EQ(tq::parseConfigText("A = " + filler).entries.at(0).value, filler);
    EXPECT_THAT(faultsOf(std::string(1'000'000, '=')), ElementsAre("1:has no key before the '='"));
}

TEST(ConfigText, BytesThatAreNotUtf8StayAsTheyAre)
{
    EXPECT_THAT(entriesOf("\xFF\xFE = \x80"), ElementsAre("1:\xFF\xFE=\x80"));
}

TEST(ConfigText, LastEntryOfAKeyIsFound)
{
    const tq::ConfigText config = tq::parseConfigText("A = 1\nB = 2\na = 3\n");
    ASSERT_NE(tq::findConfigEntry(config, "A"), nullptr);
    EXPECT_EQ(tq::findConfigEntry(config, "A")->value, "3");
    EXPECT_EQ(tq::findConfigEntry(config, "C"), nullptr);
}

TEST(ConfigFlag, WordsHaveNoCase)
{
    for (const char* word : {"YES", "yes", "True", "oN", "1"})
        EXPECT_EQ(tq::parseConfigFlag(word), true) << word;
    for (const char* word : {"NO", "no", "False", "oFF", "0"})
        EXPECT_EQ(tq::parseConfigFlag(word), false) << word;
    for (const char* word : {"", "Y", "N", "2", "01", "yes!", " yes", "true false"})
        EXPECT_EQ(tq::parseConfigFlag(word), std::nullopt) << word;
}
