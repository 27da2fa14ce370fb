#include "platform/portable.h"

#include "platform/crypto.h"
#include "platform/random.h"
#include "tests/unit/test_files.h"

#include <climits>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <sys/wait.h>
#include <unistd.h>

using testing::ElementsAre;
using testing::MatchesRegex;
using testing::UnorderedElementsAre;
using tests::writeText;

namespace {

std::string tempnamText(const char* directory, const char* prefix)
{
    const std::unique_ptr<char, decltype(&std::free)> name(V_tempnam(directory, prefix), &std::free);
    return name ? name.get() : "(null)";
}

pid_t deadProcess()
{
    const pid_t child = fork();
    if (child == 0)
        _exit(0);
    waitpid(child, nullptr, 0);
    return child;
}

const std::string HEX = "0123456789abcdef0123456789abcdef";

/// The environment as a test sets it, put back at its end.
class LocaleName : public testing::Test {
protected:
    LocaleName()
    {
        for (const char* variable : VARIABLES) {
            if (const char* value = std::getenv(variable))
                saved_.emplace_back(variable, value);
            unsetenv(variable);
        }
    }
    void TearDown() override
    {
        for (const char* variable : VARIABLES)
            unsetenv(variable);
        for (const auto& [variable, value] : saved_)
            setenv(variable.c_str(), value.c_str(), 1);
    }

    static std::string name(int category)
    {
        char buffer[64];
        V_locale_name(category, buffer, sizeof buffer);
        return buffer;
    }

private:
    static constexpr const char* VARIABLES[] = {"LC_ALL",      "LC_COLLATE", "LC_CTYPE", "LC_MESSAGES",
                                                "LC_MONETARY", "LC_NUMERIC", "LC_TIME",  "LANG"};
    std::vector<std::pair<std::string, std::string>> saved_;
};

} // namespace

// First in this file: the sweep happens at a process's first call only.
TEST(Tempnam, FirstCallSweepsStaleFilesOfItsPrefixAndOnlyThose)
{
    const std::string directory = tests::freshDirectory("/tmp/sweep");
    const std::string dead = std::to_string(deadProcess());
    const auto add = [&](const std::string& name, int age) {
        writeText(directory + "/" + name, "left behind");
        tests::makeOlder(directory + "/" + name, age);
        return name;
    };
    add("SystemCmd" + dead + "." + HEX, 120);
    add("SystemCmd" + std::to_string(getpid()) + "." + HEX, 120); // an earlier process with this one's id
    const std::string young = add("SystemCmd" + dead + "." + std::string(32, 'f'), 30);
    const std::string living = add("SystemCmd" + std::to_string(getppid()) + "." + HEX, 120);
    const std::string other = add("Other" + dead + "." + HEX, 120);
    const std::string shortName = add("SystemCmd" + dead + "." + HEX.substr(1), 120);
    const std::string longName = add("SystemCmd" + dead + "." + HEX + "0", 120);
    const std::string upper = add("SystemCmd" + dead + "." + std::string(32, 'F'), 120);
    const std::string noNumber = add("SystemCmd." + HEX, 120);
    const std::string negative = add("SystemCmd-1." + HEX, 120);
    const std::string huge = add("SystemCmd99999999999999999999." + HEX, 120);
    const std::string folder = "SystemCmd" + dead + "." + std::string(32, 'a');
    std::filesystem::create_directory(directory + "/" + folder);
    tests::makeOlder(directory + "/" + folder, 120);
    const std::string link = "SystemCmd" + dead + "." + std::string(32, 'b');
    std::filesystem::create_symlink("/tmp/nowhere", directory + "/" + link);
    tests::makeOlder(directory + "/" + link, 120);

    tempnamText(directory.c_str(), "SystemCmd");
    EXPECT_THAT(tests::namesIn(directory),
                UnorderedElementsAre(young, living, other, shortName, longName, upper, noNumber, negative,
                                     huge, folder, link));

    const std::string later = add("SystemCmd" + dead + "." + HEX, 120);
    tempnamText(directory.c_str(), "SystemCmd");
    EXPECT_EQ(tests::namesIn(directory).count(later), 1U);
}

TEST(Tempnam, NameIsDirectoryPrefixProcessAndRandomAndNoFileIsMade)
{
    const std::string name = tempnamText("/usr/torqv/torquenix", "SystemCmd");
    EXPECT_THAT(name, MatchesRegex("/usr/torqv/torquenix/SystemCmd[0-9]+\\.[0-9a-f]+"));
    EXPECT_EQ(name.size(),
              std::strlen("/usr/torqv/torquenix/SystemCmd.") + std::to_string(getpid()).size() + 32);
    EXPECT_NE(name.find("SystemCmd" + std::to_string(getpid()) + "."), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(name));
}

TEST(Tempnam, TwoCallsGiveTwoNames)
{
    EXPECT_NE(tempnamText("/tmp", "a"), tempnamText("/tmp", "a"));
}

TEST(Tempnam, EnvironmentMovesNothing)
{
    setenv("TMPDIR", "/var/tmp", 1);
    EXPECT_THAT(tempnamText("/does/not/exist", "a"), testing::StartsWith("/does/not/exist/a"));
    unsetenv("TMPDIR");
}

TEST(Tempnam, NullArgumentsGiveNull)
{
    EXPECT_EQ(V_tempnam(nullptr, "a"), nullptr);
    EXPECT_EQ(V_tempnam("/tmp", nullptr), nullptr);
}

TEST(RandomHex, HasTwoDigitsAByte)
{
    EXPECT_EQ(tq::randomHex(0), "");
    EXPECT_THAT(tq::randomHex(8), MatchesRegex("[0-9a-f]+"));
    EXPECT_EQ(tq::randomHex(8).size(), 16U);
}

TEST(Formatting, CutsAndTerminatesAndTellsTheWholeLength)
{
    char buffer[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(V_snprintf(buffer, sizeof buffer, "%s-%d", "abc", 5), 5);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(V_snprintf(buffer, 1, "%d", 7), 1);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(V_snprintf(nullptr, 0, "%d", 777), 3);
}

TEST(Formatting, FailedCallLeavesATerminatedText)
{
    char buffer[4] = {'x', 'x', 'x', 'x'};
    const wchar_t unprintable[] = {static_cast<wchar_t>(0x7FFFFFFF), 0}; // no character in the C locale
    EXPECT_LT(V_snprintf(buffer, sizeof buffer, "%ls", unprintable), 0);
    EXPECT_STREQ(buffer, "");
}

TEST(Scanning, CountsFields)
{
    int number = 0;
    char word[8] = "";
    EXPECT_EQ(V_sscanf("12 words here", "%d %7s", &number, word), 2);
    EXPECT_EQ(number, 12);
    EXPECT_STREQ(word, "words");
    EXPECT_EQ(V_sscanf("none", "%d", &number), 0);
    EXPECT_EQ(V_sscanf("", "%d", &number), EOF);
}

TEST(Basename, IsThePartAfterTheLastSlash)
{
    EXPECT_STREQ(V_basename("/usr/bin/tool"), "tool");
    EXPECT_STREQ(V_basename("./tool"), "tool");
    EXPECT_STREQ(V_basename("tool"), "tool");
    const char* path = "/a/b";
    EXPECT_EQ(V_basename(path), path + 3);
}

TEST(Basename, IsNullWhenNothingStandsThere)
{
    EXPECT_EQ(V_basename(nullptr), nullptr);
    EXPECT_EQ(V_basename(""), nullptr);
    EXPECT_EQ(V_basename("/"), nullptr);
    EXPECT_EQ(V_basename("/usr/bin/"), nullptr);
}

TEST_F(LocaleName, IsCWithoutAnyVariable)
{
    EXPECT_EQ(name(LC_MESSAGES), "C");
}

TEST_F(LocaleName, LangThenTheCategoryThenLcAllDecides)
{
    setenv("LANG", "de_DE.UTF-8", 1);
    EXPECT_EQ(name(LC_MESSAGES), "de_DE.UTF-8");
    setenv("LC_MESSAGES", "fr_FR.UTF-8", 1);
    EXPECT_EQ(name(LC_MESSAGES), "fr_FR.UTF-8");
    EXPECT_EQ(name(LC_CTYPE), "de_DE.UTF-8");
    setenv("LC_ALL", "ja_JP.UTF-8", 1);
    EXPECT_EQ(name(LC_MESSAGES), "ja_JP.UTF-8");
}

TEST_F(LocaleName, EmptyVariableCountsAsUnset)
{
    setenv("LC_ALL", "", 1);
    setenv("LC_TIME", "", 1);
    setenv("LANG", "es_ES.UTF-8", 1);
    EXPECT_EQ(name(LC_TIME), "es_ES.UTF-8");
}

TEST_F(LocaleName, EachCategoryHasItsVariable)
{
    const std::pair<int, const char*> categories[] = {
        {LC_COLLATE, "LC_COLLATE"},   {LC_CTYPE, "LC_CTYPE"},     {LC_MESSAGES, "LC_MESSAGES"},
        {LC_MONETARY, "LC_MONETARY"}, {LC_NUMERIC, "LC_NUMERIC"}, {LC_TIME, "LC_TIME"}};
    for (const auto& [category, variable] : categories)
        setenv(variable, variable, 1);
    for (const auto& [category, variable] : categories)
        EXPECT_EQ(name(category), variable);
    EXPECT_EQ(name(INT_MAX), "C");
}

TEST_F(LocaleName, IsCutToTheBuffer)
{
    setenv("LANG", "de_DE.UTF-8", 1);
    char buffer[6] = "";
    V_locale_name(LC_CTYPE, buffer, sizeof buffer);
    EXPECT_STREQ(buffer, "de_DE");
    V_locale_name(LC_CTYPE, buffer, 0);
    EXPECT_STREQ(buffer, "de_DE");
}

TEST_F(LocaleName, ProcessStaysInTheCLocale)
{
    setenv("LC_ALL", "C.UTF-8", 1);
    name(LC_CTYPE);
    EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C");
}
