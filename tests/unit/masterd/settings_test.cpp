#include "masterd/settings.h"
#include "tests/unit/scratch_directory.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace {

using masterd::SettingsFile;

std::string faultOf(const std::string& text)
{
    try {
        masterd::parseSettings(text);
    } catch (const std::runtime_error& fault) {
        return fault.what();
    }
    return "";
}

TEST(ParseSettings, AbsentKeysHaveTheirDefaults)
{
    const masterd::Settings settings = masterd::parseSettings("{}");
    EXPECT_EQ(settings.tokenLifetimeSeconds, 3600);
    EXPECT_EQ(settings.certificateDays, 730);
}

TEST(ParseSettings, TextThatIsWrittenAtFirstHoldsTheDefaults)
{
    const masterd::Settings settings = masterd::parseSettings(masterd::defaultSettingsText());
    EXPECT_EQ(settings.tokenLifetimeSeconds, masterd::Settings().tokenLifetimeSeconds);
    EXPECT_EQ(settings.certificateDays, masterd::Settings().certificateDays);
}

TEST(ParseSettings, TakesValuesUpToTheirEnds)
{
    EXPECT_EQ(masterd::parseSettings(R"({"tokenLifetimeSeconds": 1})").tokenLifetimeSeconds, 1);
    EXPECT_EQ(masterd::parseSettings(R"({"tokenLifetimeSeconds": 604800})").tokenLifetimeSeconds, 604800);
    EXPECT_EQ(masterd::parseSettings(R"({"certificateDays": 3650})").certificateDays, 3650);
}

TEST(ParseSettings, FaultsNameTheKeyOrTheLine)
{
    for (const char* value : {"0", "-1", "604801", "99999999999999999999", "1.5", "\"60\"", "null", "true"})
        EXPECT_NE(faultOf(std::string("{\"tokenLifetimeSeconds\":") + value + "}"), "") << value;
    EXPECT_EQ(faultOf(R"({"tokenLifetimeSeconds":0})"),
              "\"tokenLifetimeSeconds\" is not a whole number from 1 to 604800");
    EXPECT_EQ(faultOf(R"({"certificateDays":3651})"),
              "\"certificateDays\" is not a whole number from 1 to 3650");
    EXPECT_EQ(faultOf(R"({"tokenLifetime":60})"), "unknown key \"tokenLifetime\"");
    EXPECT_EQ(faultOf("[]"), "it is not a JSON object");
    EXPECT_EQ(faultOf("{\n\n!").rfind("line 3: ", 0), 0U);
    EXPECT_EQ(faultOf(R"({"certificateDays":1,"certificateDays":2})").rfind("line 1: duplicate", 0), 0U);
    EXPECT_EQ(faultOf("").rfind("line ", 0), 0U);
}

TEST(SettingsFile, AbsentFileMeansTheDefaults)
{
    const tests::ScratchDirectory folder;
    EXPECT_EQ(SettingsFile(folder.file("settings.json")).current().tokenLifetimeSeconds, 3600);
}

TEST(SettingsFile, ReloadTakesWhatHasBeenWrittenSince)
{
    const tests::ScratchDirectory folder;
    const std::string path = folder.file("settings.json");
    tests::writeText(path, R"({"tokenLifetimeSeconds": 10})");
    SettingsFile settings(path);
    tests::writeText(path, R"({"tokenLifetimeSeconds": 20})");
    EXPECT_EQ(settings.current().tokenLifetimeSeconds, 10);
    settings.reload();
    EXPECT_EQ(settings.current().tokenLifetimeSeconds, 20);
}

TEST(SettingsFile, FaultyFileIsToldByNameAndTheSettingsStay)
{
    const tests::ScratchDirectory folder;
    const std::string path = folder.file("settings.json");
    tests::writeText(path, R"({"tokenLifetimeSeconds": 10})");
    SettingsFile settings(path);
    tests::writeText(path, "{");
    try {
        settings.reload();
        FAIL() << "the faulty file was taken";
    } catch (const std::runtime_error& fault) {
        EXPECT_EQ(std::string(fault.what()).rfind(path + ": line 1: ", 0), 0U) << fault.what();
    }
    EXPECT_EQ(settings.current().tokenLifetimeSeconds, 10);
    EXPECT_THROW(SettingsFile{path}, std::runtime_error);
}

TEST(SettingsFile, FolderAndHugeFileAreToldByName)
{
    const tests::ScratchDirectory folder;
    EXPECT_THROW(SettingsFile{folder.path()}, std::runtime_error);
    tests::writeText(folder.file("huge"), std::string(66560, ' '));
    EXPECT_THROW(SettingsFile{folder.file("huge")}, std::runtime_error);
}

} // namespace
