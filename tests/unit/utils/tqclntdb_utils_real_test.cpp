#include "utils/tqclntdb_utils_real.h"

#include "tests/fakes/platform/fake_platform.h"
#include "utils/tqclntdb_utils.h"

#include <cerrno>
#include <gmock/gmock.h>

// What the utilities would be asked and what they answer: defined here, so that the forwarders reach these.
namespace {

struct Recorder {
    std::vector<std::string> calls;
    const void* output = nullptr; ///< where the text is to go
    const void* status = nullptr;
    int result = 0;
    bool answer = false;
};

Recorder recorder;

} // namespace

namespace tqclntdb_utils {

int getTQInstalledVersionStr(std::string& out)
{
    recorder.calls.emplace_back("getTQInstalledVersionStr");
    recorder.output = &out;
    return recorder.result;
}

bool isDebianUbuntu()
{
    recorder.calls.emplace_back("isDebianUbuntu");
    return recorder.answer;
}

bool isHostTQUnixClient()
{
    recorder.calls.emplace_back("isHostTQUnixClient");
    return recorder.answer;
}

int readTorquenixVersionFile(const std::string& path, std::string& out)
{
    recorder.calls.push_back("readTorquenixVersionFile " + path);
    recorder.output = &out;
    return recorder.result;
}

int readUnixTorquenixBinVersionFile(std::string& out)
{
    recorder.calls.emplace_back("readUnixTorquenixBinVersionFile");
    recorder.output = &out;
    return recorder.result;
}

int run_command_and_capture_output(const char* command, std::string& output, int* status, int retries,
                                   int waitMs)
{
    recorder.calls.push_back(std::string("run_command_and_capture_output ") + command + " " +
                             std::to_string(retries) + " " + std::to_string(waitMs));
    recorder.output = &output;
    recorder.status = status;
    return recorder.result;
}

const char* get_TQ_binary_version2()
{
    recorder.calls.emplace_back("get_TQ_binary_version2");
    return "Torquenix_1.2";
}

} // namespace tqclntdb_utils

namespace {

using testing::ElementsAre;

class Seams : public testing::Test {
protected:
    void SetUp() override
    {
        fakes::reset();
        recorder = Recorder{};
        recorder.result = 4711;
    }

    std::string out;
    int status = 0;
};

TEST_F(Seams, InstalledVersionIsForwarded)
{
    EXPECT_EQ(T::getTQInstalledVersionStr(out), 4711);
    EXPECT_EQ(recorder.output, &out);
    EXPECT_THAT(recorder.calls, ElementsAre("getTQInstalledVersionStr"));
}

TEST_F(Seams, VersionFilesAreForwarded)
{
    EXPECT_EQ(T::readTorquenixVersionFile("/some/path", out), 4711);
    EXPECT_EQ(recorder.output, &out);
    recorder.output = nullptr;
    EXPECT_EQ(T::readUnixTorquenixBinVersionFile(out), 4711);
    EXPECT_EQ(recorder.output, &out);
    EXPECT_THAT(recorder.calls,
                ElementsAre("readTorquenixVersionFile /some/path", "readUnixTorquenixBinVersionFile"));
}

TEST_F(Seams, CommandCaptureIsForwardedWithNoRetriesAndAWaitOfZero)
{
    EXPECT_EQ(T::run_command_and_capture_output("uname -a", out, &status), 4711);
    EXPECT_EQ(recorder.output, &out);
    EXPECT_EQ(recorder.status, &status);
    EXPECT_THAT(recorder.calls, ElementsAre("run_command_and_capture_output uname -a 0 0"));
}

TEST_F(Seams, PlatformProbesAreForwarded)
{
    for (const bool answer : {false, true}) {
        recorder.answer = answer;
        EXPECT_EQ(T::isDebianUbuntu(), answer);
        EXPECT_EQ(T::isHostTQUnixClient(), answer);
    }
    EXPECT_THAT(recorder.calls,
                ElementsAre("isDebianUbuntu", "isHostTQUnixClient", "isDebianUbuntu", "isHostTQUnixClient"));
}

TEST_F(Seams, BuiltInReleaseIsForwarded)
{
    EXPECT_STREQ(T::get_TQ_binary_version2(), "Torquenix_1.2");
}

TEST_F(Seams, PlatformNamesAreForwardedToThePlatform)
{
    fakes::platform().platformNames = {{7, "seven"}};
    fakes::platform().validPlatforms = {7};
    EXPECT_STREQ(T::getOsHdwName(7), "seven");
    EXPECT_TRUE(T::isValidKqupdateOsHdwNamesIdentifier(7));
    EXPECT_FALSE(T::isValidKqupdateOsHdwNamesIdentifier(8));
    EXPECT_THAT(fakes::platform().calls,
                ElementsAre("getOsHdwName 7", "isValidKqupdateOsHdwNamesIdentifier 7",
                            "isValidKqupdateOsHdwNamesIdentifier 8"));
}

TEST_F(Seams, StatIsTheSystemsAndFollowsLinks)
{
    struct ::stat attributes {};
    EXPECT_EQ(T::stat("/proc/self/exe", &attributes), 0);
    EXPECT_TRUE(S_ISREG(attributes.st_mode));
    errno = 0;
    EXPECT_EQ(T::stat("/no/such/file", &attributes), -1);
    EXPECT_EQ(errno, ENOENT);
}

} // namespace
