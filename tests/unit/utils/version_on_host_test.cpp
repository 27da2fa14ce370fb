#include "utils/tqclntdb_utils.h"

#include "utils/tqclntdb_utils_real.h"

#include "tests/fakes/platform/fake_platform.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

namespace {

constexpr const char* BIN_FILE = "/usr/torqv/torquenix/bin/version";
constexpr const char* SERVER_FILE = "/usr/torqv/torquenix/version";
constexpr const char* SERVER_DB = "/usr/torqv/db";

class VersionOnHost : public testing::Test {
protected:
    void SetUp() override
    {
        fakes::reset();
        for (const char* path : {BIN_FILE, SERVER_FILE, SERVER_DB})
            std::filesystem::remove_all(path);
    }

    static void write(const char* path, const char* text) { std::ofstream(path) << text; }

    std::string version;
};

TEST_F(VersionOnHost, NoVersionFilesAtAllGiveTheBuiltInRelease)
{
    EXPECT_EQ(T::getTQInstalledVersionStr(version), 0);
    EXPECT_EQ(version, "Torquenix_9.1.0.1");
}

TEST_F(VersionOnHost, ClientReadsItsBinaryDirectory)
{
    write(BIN_FILE, "Torquenix-Linux_x86 9.3.0.1\n");
    write(SERVER_FILE, "VERSION = Torquenix 9.4\n");
    EXPECT_EQ(T::getTQInstalledVersionStr(version), 0);
    EXPECT_EQ(version, "Torquenix_9.3.0.1");
}

TEST_F(VersionOnHost, ServerWhoseBinFileSays90AndWhoseProductFileSays91Has91)
{
    std::filesystem::create_directory(SERVER_DB);
    write(BIN_FILE, "Torquenix-Linux_x86 9.0\n");
    write(SERVER_FILE, "VERSION = Torquenix 9.1\n");
    EXPECT_EQ(T::getTQInstalledVersionStr(version), 0);
    EXPECT_EQ(version, "Torquenix_9.1");
    EXPECT_EQ(tqclntdb_utils::getInstalledPackagesVersionNumberStr(4), "9.1.0.0");
}

TEST_F(VersionOnHost, MissingServerDatabaseMakesAClientOnlyHost)
{
    EXPECT_TRUE(T::isHostTQUnixClient());
    write(SERVER_DB, "");
    EXPECT_FALSE(T::isHostTQUnixClient());
}

TEST_F(VersionOnHost, CapturedCommandKeepsItsStatus)
{
    int status = 0;
    EXPECT_EQ(T::run_command_and_capture_output("printf text; exit 7", version, &status), 0);
    EXPECT_EQ(version, "text");
    EXPECT_EQ(status, 7);
}

} // namespace
