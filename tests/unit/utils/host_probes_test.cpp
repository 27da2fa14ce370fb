#include "utils/tqclntdb_utils.h"

#include "tests/fakes/platform/fake_platform.h"
#include "tests/fakes/seams/fake_seams.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

namespace {

using fakes::seams;
using testing::ElementsAre;
using tqclntdb_utils::findProductStr;

TEST(FindProductStr, RecognisesEachProductFollowedByADash)
{
    const std::pair<const char*, const char*> lines[] = {
        {"Torquenix-Linux 9.1", "Torquenix"},
        {"Frostmarch-x 2.0", "Frostmarch"},
        {"TorquenixforOpenStack-x 1.0", "TorquenixforOpenStack"},
        {"Torquenix-", "Torquenix"},
    };
    for (const auto& [line, expected] : lines) {
        std::string product = "untouched";
        EXPECT_TRUE(findProductStr(line, product)) << line;
        EXPECT_EQ(product, expected) << line;
    }
}

TEST(FindProductStr, OtherLinesAreRefusedAndLeaveTheProduct)
{
    const std::string lines[] = {"",
                                 " Torquenix-Linux 9.1",
                                 "Torquenix",
                                 "Torquenix 9.1",
                                 "torquenix-Linux 9.1",
                                 "TorquenixforOpenStack 1.0",
                                 "x Frostmarch-x 2.0",
                                 std::string("\0Torquenix-x 1", 14),
                                 "\xef\xbb\xbfTorquenix-Linux 9.1"};
    for (const std::string& line : lines) {
        std::string product = "untouched";
        EXPECT_FALSE(findProductStr(line, product)) << line;
        EXPECT_EQ(product, "untouched") << line;
    }
}

class HostProbes : public testing::Test {
protected:
    void SetUp() override
    {
        fakes::reset();
        fakes::resetSeams();
    }

    static bool debianUbuntuWith(const std::string& printed, int result, int exitCode)
    {
        seams().command = [=](const std::string&, std::string& output, int& status) {
            output = printed;
            status = exitCode;
            return result;
        };
        return tqclntdb_utils::isDebianUbuntu();
    }

    static bool clientWithDatabaseMode(unsigned mode)
    {
        seams().files = {{"/usr/torqv/db", mode}};
        return tqclntdb_utils::isHostTQUnixClient();
    }
};

TEST_F(HostProbes, DebianFamilyIsToldByTheKernelsName)
{
    EXPECT_TRUE(debianUbuntuWith("Linux h 6.1.0-18-amd64 #1 SMP Debian 6.1.76-1 x86_64 GNU/Linux\n", 0, 0));
    EXPECT_TRUE(debianUbuntuWith("Linux h 5.15.0-101-generic #111-Ubuntu SMP x86_64\n", 0, 0));
    EXPECT_THAT(seams().calls, ElementsAre("run_command_and_capture_output uname -a",
                                           "run_command_and_capture_output uname -a"));
}

TEST_F(HostProbes, OtherKernelsAndOtherCaseAreNotOfTheDebianFamily)
{
    for (const char* text : {"", "Linux h 5.14.0-427.el9.x86_64 #1 SMP\n", "debian", "UBUNTU", "Debia\nn"})
        EXPECT_FALSE(debianUbuntuWith(text, 0, 0)) << text;
}

TEST_F(HostProbes, StatusOfUnameIsNotLookedAt)
{
    EXPECT_TRUE(debianUbuntuWith("Debian", 0, 1));
    EXPECT_TRUE(debianUbuntuWith("Debian", 7250, -1));
    EXPECT_FALSE(debianUbuntuWith("", 7247, -1));
}

TEST_F(HostProbes, MissingServerDatabaseMakesAClientOnlyHost)
{
    EXPECT_TRUE(tqclntdb_utils::isHostTQUnixClient());
    EXPECT_THAT(seams().calls, ElementsAre("stat /usr/torqv/db"));
}

TEST_F(HostProbes, FolderOrFileAtTheDatabasesPathMakesAServer)
{
    EXPECT_FALSE(clientWithDatabaseMode(S_IFDIR | 0755));
    EXPECT_FALSE(clientWithDatabaseMode(S_IFREG | 0644));
}

TEST_F(HostProbes, FileTypeIsTestedByItsTwoBitsOnly)
{
    EXPECT_TRUE(clientWithDatabaseMode(S_IFIFO | 0644));
    EXPECT_TRUE(clientWithDatabaseMode(S_IFCHR | 0644));
    EXPECT_TRUE(clientWithDatabaseMode(0777));
    EXPECT_FALSE(clientWithDatabaseMode(S_IFBLK | 0644)) << "carries the folder's bit";
    EXPECT_FALSE(clientWithDatabaseMode(S_IFSOCK | 0644)) << "carries both bits";
}

} // namespace
