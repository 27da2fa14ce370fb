#include "hostinfo/tqclntdb_hostinfo.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using testing::Each;
using testing::ElementsAre;
using testing::SizeIs;
using TQCLNTDB::CHostInformation;

namespace {

using List = std::vector<std::string>;

TEST(SeparateStringValuesByTok, JoinsWithoutATrailingSeparator)
{
    EXPECT_EQ(CHostInformation::SeparateStringValuesByTok({"a", "b"}, ","), "a,b");
    EXPECT_EQ(CHostInformation::SeparateStringValuesByTok({"a", "b"}, "; "), "a; b");
    EXPECT_EQ(CHostInformation::SeparateStringValuesByTok({"a", "", "b"}, ","), "a,,b");
}

TEST(SeparateStringValuesByTok, EmptyListGivesAnEmptyText)
{
    EXPECT_EQ(CHostInformation::SeparateStringValuesByTok({}, ","), "");
}

TEST(SeparateStringValuesByTok, LastEntryLosesTheSeparatorsThatItEndsIn)
{
    EXPECT_EQ(CHostInformation::SeparateStringValuesByTok({"a,"}, ","), "a");
    EXPECT_EQ(CHostInformation::SeparateStringValuesByTok({"a,", "b,,"}, ","), "a,,b");
    EXPECT_EQ(CHostInformation::SeparateStringValuesByTok({"a", "", ""}, ","), "a");
    EXPECT_EQ(CHostInformation::SeparateStringValuesByTok({",", ""}, ","), "");
}

TEST(SeparateStringValuesByTok, AnyCharacterOfTheSeparatorIsCutFromTheTail)
{
    EXPECT_EQ(CHostInformation::SeparateStringValuesByTok({"a", "b; ;"}, "; "), "a; b");
}

TEST(SeparateStringValuesByTok, EmptySeparatorJoinsAndCutsNothing)
{
    EXPECT_EQ(CHostInformation::SeparateStringValuesByTok({"a", "b,"}, ""), "ab,");
}

TEST(StringToVector, KeepsEmptyPiecesAndThePieceAfterTheLastSeparator)
{
    EXPECT_THAT(CHostInformation::stringToVector("a,b", ','), ElementsAre("a", "b"));
    EXPECT_THAT(CHostInformation::stringToVector("a,,b", ','), ElementsAre("a", "", "b"));
    EXPECT_THAT(CHostInformation::stringToVector("a,", ','), ElementsAre("a", ""));
    EXPECT_THAT(CHostInformation::stringToVector(",", ','), ElementsAre("", ""));
    EXPECT_THAT(CHostInformation::stringToVector("abc", ','), ElementsAre("abc"));
}

TEST(StringToVector, EmptyTextGivesOneEmptyEntry)
{
    EXPECT_THAT(CHostInformation::stringToVector("", ','), ElementsAre(""));
}

TEST(StringToVector, PiecesAreNotTrimmed)
{
    EXPECT_THAT(CHostInformation::stringToVector(" a , b\n", ','), ElementsAre(" a ", " b\n"));
}

TEST(StringToVector, SplitsMillionsOfSeparators)
{
    const List pieces = CHostInformation::stringToVector(std::string(1000000, ','), ',');
    EXPECT_THAT(pieces, SizeIs(1000001));
    EXPECT_THAT(pieces, Each(""));
}

TEST(VectorToString, JoinsWithCommaAndBlank)
{
    EXPECT_EQ(CHostInformation::vectorToString({"a", "b", "c"}), "a, b, c");
    EXPECT_EQ(CHostInformation::vectorToString({"a"}), "a");
    EXPECT_EQ(CHostInformation::vectorToString({"", ""}), ", ");
    EXPECT_EQ(CHostInformation::vectorToString({}), "");
}

TEST(TrimLR, RemovesLeadingAndTrailingCharactersOfTheSet)
{
    EXPECT_EQ(CHostInformation::trimLR("  a b  ", " "), "a b");
    EXPECT_EQ(CHostInformation::trimLR("\" a \"", "\" "), "a");
    EXPECT_EQ(CHostInformation::trimLR("a", " "), "a");
    EXPECT_EQ(CHostInformation::trimLR("  a", " "), "a");
    EXPECT_EQ(CHostInformation::trimLR("a\"", "\""), "a");
}

TEST(TrimLR, TextOfNothingElseIsReturnedUnchanged)
{
    EXPECT_EQ(CHostInformation::trimLR("   ", " "), "   ");
    EXPECT_EQ(CHostInformation::trimLR("\" \"", "\" "), "\" \"");
    EXPECT_EQ(CHostInformation::trimLR("", " "), "");
}

TEST(TrimLR, EmptySetTrimsNothing)
{
    EXPECT_EQ(CHostInformation::trimLR(" a ", ""), " a ");
}

} // namespace
