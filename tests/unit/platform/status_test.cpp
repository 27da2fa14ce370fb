#include "platform/status.h"

#include "platform/paths.h"
#include "tests/unit/scratch_directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <clocale>
#include <cstdlib>
#include <locale.h>
#include <map>
#include <set>

namespace {

TEST(StatusTexts, HoldEveryStatusOfTheProductOnce)
{
    const std::multiset<int> expected{-1,   0,    11,   12,   13,   14,   20,   25,   36,
                                      111,  114,  142,  227,  252,  1060, 7247, 7250, 7281,
                                      7282, 7289, 7290, 7291, 7500, 7501, 7610, 7611, 7612,
                                      7613, 7620, 7621, 7622, 7623, 7624, 7625, 7626, 30036};
    std::multiset<int> numbers;
    for (const tq::StatusText& row : tq::statusTexts())
        numbers.insert(row.status);
    EXPECT_EQ(numbers, expected);
}

TEST(StatusTexts, NamesAndTextsAreDifferentSentencesWithoutAFullStop)
{
    std::set<std::string> names;
    std::set<std::string> texts;
    for (const tq::StatusText& row : tq::statusTexts()) {
        const std::string text = row.text;
        EXPECT_TRUE(names.insert(row.name).second) << row.name;
        EXPECT_TRUE(texts.insert(text).second) << text;
        EXPECT_TRUE(std::isupper(static_cast<unsigned char>(text.front())) != 0) << text;
        EXPECT_NE(text.back(), '.') << text;
        EXPECT_EQ(text.find('%'), std::string::npos) << text;
    }
}

TEST(StatusTexts, AreFoundByNumber)
{
    const tq::StatusText* row = tq::findStatusText(EC_no_master_server);
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->status, 111);
    EXPECT_STREQ(row->name, "no_master_server");
    EXPECT_EQ(tq::findStatusText(4711), nullptr);
}

TEST(GetECmsg, GivesTheEnglishText)
{
    EXPECT_EQ(getECmsg(0), "The requested operation was successfully completed");
    EXPECT_EQ(getECmsg(12), "A file could not be opened");
}

TEST(GetECmsg, UnknownNumberHasATextThatSaysSo)
{
    EXPECT_EQ(getECmsg(8600), "Unknown status 8600");
    EXPECT_EQ(getECmsg(-2), "Unknown status -2");
}

/// With the catalogue of this build at its place.
class GetECmsgl : public testing::Test {
protected:
    void SetUp() override
    {
        const std::string folder = std::string(TQ_LOCALE_DIR) + "/de/LC_MESSAGES";
        std::filesystem::create_directories(folder);
        std::filesystem::copy_file(TQ_GERMAN_CATALOGUE, folder + "/tqhostdb.mo",
                                   std::filesystem::copy_options::overwrite_existing);
        unsetenv("LANGUAGE");
        unsetenv("LC_ALL");
        unsetenv("LANG");
    }
    void TearDown() override { unsetenv("LANGUAGE"); }
};

TEST_F(GetECmsgl, GermanNamesGiveTheGermanTextInUtf8)
{
    for (const char* name :
         {"de", "de_DE", "de_DE.UTF-8", "de_AT.ISO-8859-1", "de_DE@euro", "de_DE.UTF-8@euro"})
        EXPECT_EQ(getECmsgl(12, name), "Eine Datei konnte nicht geöffnet werden") << name;
}

TEST_F(GetECmsgl, EnglishForTheNamesThatMeanNoLanguage)
{
    for (const char* name : {"C", "POSIX", "", "C.UTF-8", "C.utf8", "POSIX.UTF-8"})
        EXPECT_EQ(getECmsgl(12, name), "A file could not be opened") << name;
    EXPECT_EQ(getECmsgl(12, nullptr), "A file could not be opened");
}

TEST_F(GetECmsgl, EnglishWhereThereIsNoTranslation)
{
    for (const char* name : {"fr_FR.UTF-8", "en_US.UTF-8", "xx", "DE"})
        EXPECT_EQ(getECmsgl(12, name), "A file could not be opened") << name;
}

TEST_F(GetECmsgl, LanguagesTakeTurns)
{
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(getECmsgl(14, "de_DE.UTF-8"), "Eine Datei konnte nicht geschrieben werden");
        EXPECT_EQ(getECmsgl(14, "fr_FR.UTF-8"), "A file could not be written");
    }
}

TEST_F(GetECmsgl, EveryStatusIsTranslated)
{
    for (const tq::StatusText& row : tq::statusTexts())
        EXPECT_NE(getECmsgl(row.status, "de_DE.UTF-8"), row.text);
}

TEST_F(GetECmsgl, UnknownNumberIsTranslatedToo)
{
    EXPECT_EQ(getECmsgl(8600, "de_DE.UTF-8"), "Unbekannter Status 8600");
    EXPECT_EQ(getECmsgl(8600, "C"), "Unknown status 8600");
}

TEST_F(GetECmsgl, NameNeverLeadsToACatalogueElsewhere)
{
    const std::string folder = std::string(TQ_LOCALE_DIR) + "/../evil/LC_MESSAGES";
    std::filesystem::create_directories(folder);
    std::filesystem::copy_file(TQ_GERMAN_CATALOGUE, folder + "/tqhostdb.mo",
                               std::filesystem::copy_options::overwrite_existing);
    const std::string longName(5000, 'd');
    for (const std::string& name : {std::string("../evil"), std::string("fr:de"), std::string("de\n"),
                                    std::string("de_DE:de.UTF-8"), std::string(".UTF-8"), longName})
        EXPECT_EQ(getECmsgl(12, name.c_str()), "A file could not be opened") << name;
}

TEST_F(GetECmsgl, UsersLanguageVariableDoesNotDecide)
{
    setenv("LANGUAGE", "fr:en", 1);
    EXPECT_EQ(getECmsgl(12, "de_DE.UTF-8"), "Eine Datei konnte nicht geöffnet werden");
    setenv("LANGUAGE", "de", 1);
    EXPECT_EQ(getECmsgl(12, "fr_FR.UTF-8"), "A file could not be opened");
}

TEST_F(GetECmsgl, LeavesEnvironmentAndLocaleAsTheyWere)
{
    const locale_t before = uselocale(nullptr);
    static_cast<void>(getECmsgl(12, "de_DE.UTF-8"));
    EXPECT_EQ(std::getenv("LANGUAGE"), nullptr);
    setenv("LANGUAGE", "fr", 1);
    static_cast<void>(getECmsgl(12, "de_DE.UTF-8"));
    EXPECT_STREQ(std::getenv("LANGUAGE"), "fr");
    EXPECT_EQ(uselocale(nullptr), before);
    EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C");
}

TEST_F(GetECmsgl, DamagedCatalogueMeansEnglish)
{
    const std::string folder = std::string(TQ_LOCALE_DIR) + "/nl/LC_MESSAGES";
    std::filesystem::create_directories(folder);
    tests::writeText(folder + "/tqhostdb.mo", "not a catalogue");
    EXPECT_EQ(getECmsgl(12, "nl_NL.UTF-8"), "A file could not be opened");
}

/// The entries of a .po file, less its head. Every text here stands on one line.
std::map<std::string, std::string> poEntries(const std::string& path)
{
    std::map<std::string, std::string> entries;
    std::string english;
    for (const std::string& line : tests::linesOf(tests::readText(path))) {
        if (line.rfind("msgid \"", 0) == 0)
            english = line.substr(7, line.size() - 8);
        else if (line.rfind("msgstr \"", 0) == 0 && !english.empty())
            entries.emplace(english, line.substr(8, line.size() - 9));
    }
    return entries;
}

TEST(GermanCatalogue, HoldsATranslationOfEveryTextAndNoStaleOne)
{
    const std::map<std::string, std::string> entries = poEntries(TQ_SOURCE_DIR "/platform/po/de.po");
    std::set<std::string> english{tq::UNKNOWN_STATUS_FORMAT};
    for (const tq::StatusText& row : tq::statusTexts())
        english.insert(row.text);
    for (const std::string& text : english) {
        const auto entry = entries.find(text);
        EXPECT_TRUE(entry != entries.end() && !entry->second.empty()) << "not translated: " << text;
    }
    for (const auto& [text, translation] : entries)
        EXPECT_EQ(english.count(text), 1U) << "stale: " << text;
}

TEST(GermanCatalogue, HasNoFuzzyOrObsoleteEntry)
{
    const std::string text = tests::readText(TQ_SOURCE_DIR "/platform/po/de.po");
    EXPECT_EQ(text.find("fuzzy"), std::string::npos);
    EXPECT_EQ(text.find("#~"), std::string::npos);
}

} // namespace
