#include "sysinfo/host_info.h"

#include "platform/config_text.h"
#include "tests/unit/long_line.h"
#include "tests/unit/sysinfo/faked_host.h"

#include <fstream>
#include <gmock/gmock.h>
#include <sstream>

namespace {

using faked_host::host;
using fakes::LogEntry;
using fakes::platform;
using SYSINFO_NAMESPACE::configuredName;
using SYSINFO_NAMESPACE::UnixHostInfo;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

constexpr const char* CONFIGURATION = "/usr/torqv/torquenix/kx.conf";

TEST(ConfiguredName, ClusterNameMyClusterGivesMycluster)
{
    EXPECT_EQ(configuredName("CLUSTER_NAME = MyCluster\n", "cluster_name"), "mycluster");
}

TEST(ConfiguredName, LineMayHoldTheNameAnywhereEvenInAComment)
{
    EXPECT_EQ(configuredName("# old CLIENT_NAME = h1\n", "client_name"), "h1");
    EXPECT_EQ(configuredName("SERVER = not_the_client_name\n", "client_name"), "not_the_client_name");
}

TEST(ConfiguredName, TextBehindTheLastEqualsSignAndOneCharacterCounts)
{
    EXPECT_EQ(configuredName("CLIENT_NAME=h1\n", "client_name"), "1");
    EXPECT_EQ(configuredName("CLIENT_NAME = a = b\n", "client_name"), "b");
    EXPECT_EQ(configuredName("CLIENT_NAME =  h1\n", "client_name"), " h1");
    EXPECT_EQ(configuredName("CLIENT_NAME = h1  \n", "client_name"), "h1  ") << "trailing blanks stay";
    EXPECT_EQ(configuredName("CLIENT_NAME = h1\r\n", "client_name"), "h1");
    EXPECT_EQ(configuredName("CLIENT_NAME = h1", "client_name"), "h1") << "no line end";
}

TEST(ConfiguredName, OtherLinesAndEmptyValuesGiveNone)
{
    for (const char* line : {"", "\n", "SERVER = m1\n", "CLIENT_NAME\n", "CLIENT_NAME =\n",
                             "CLIENT_NAME =", "CLIENT_NAME = \n", "CLIENT_NAME =x\n", "CLIENT NAME = h1\n"})
        EXPECT_EQ(configuredName(line, "client_name"), std::nullopt) << line;
}

TEST(ConfiguredName, OnlyAsciiLettersAreLowered)
{
    EXPECT_EQ(configuredName("CLIENT_NAME = \xc3\x84@[Z\n", "client_name"), "\xc3\x84@[z");
}

class UnixHostInfoTest : public testing::Test {
protected:
    void SetUp() override { faked_host::reset(); }

    std::string clientName(const std::string& configuration)
    {
        faked_host::setConfiguration(configuration);
        return probe.getTquClientName();
    }

    UnixHostInfo probe;
};

TEST_F(UnixHostInfoTest, HostIdIsTheLow32BitsInHexadecimal)
{
    const std::pair<long, const char*> ids[] = {{0x7f0101L, "7f0101"}, {0xABCDEF01L, "abcdef01"},
                                                {0x1200000034L, "34"}, {-1L, "ffffffff"},
                                                {0L, "<NULL>"},        {0x500000000L, "<NULL>"}};
    for (const auto& [id, text] : ids) {
        faked_host::reset();
        platform().gethostid = id;
        EXPECT_EQ(probe.getHostID(), text);
        EXPECT_THAT(platform().log,
                    ElementsAre(LogEntry{2, std::string("hostID: ") + text, "UnixHostInfo::getHostID"}));
    }
}

TEST_F(UnixHostInfoTest, ClientNameComesFromTheConfigurationInLowerCase)
{
    EXPECT_EQ(clientName("SERVER = m1.example\nCLIENT_NAME = H1.Example\nCLIENT_NAME = h2\n"), "h1.example");
    std::vector<LogEntry> expected = faked_host::catEntries(CONFIGURATION, 0);
    expected.push_back({2, "TquClientName: h1.example", "UnixHostInfo::getTquClientName"});
    EXPECT_THAT(faked_host::log(), ElementsAreArray(expected));
}

TEST_F(UnixHostInfoTest, ClusterNameComesFromItsOwnLine)
{
    faked_host::setConfiguration("CLIENT_NAME = h1\nCLUSTER_NAME = MyCluster\n");
    EXPECT_EQ(probe.getTquClusterName(), "mycluster");
    std::vector<LogEntry> expected = faked_host::catEntries(CONFIGURATION, 0);
    expected.push_back({2, "TquClusterName: mycluster", "UnixHostInfo::getTquClusterName"});
    EXPECT_THAT(faked_host::log(), ElementsAreArray(expected));
}

TEST_F(UnixHostInfoTest, LineWithNothingBehindTheEqualsSignIsSkippedAndTheSearchGoesOn)
{
    EXPECT_EQ(clientName("CLIENT_NAME =\nclient_name = \nCLIENT_NAME = h2\n"), "h2");
}

TEST_F(UnixHostInfoTest, ConfigurationWithoutTheNameGivesTheMarkerAndItsEntry)
{
    for (const char* text : {"", "SERVER = m1\n", "CLIENT_NAME =\n"}) {
        EXPECT_EQ(clientName(text), "<NULL>") << text;
        EXPECT_EQ(platform().log.back(),
                  (LogEntry{2, "TquClientName: <NULL>", "UnixHostInfo::getTquClientName"}))
            << text;
    }
}

TEST_F(UnixHostInfoTest, MissingConfigurationIsLoggedAndEndsAtOnce)
{
    EXPECT_EQ(probe.getTquClientName(), "<NULL>");
    EXPECT_EQ(probe.getTquClusterName(), "<NULL>");
    std::vector<LogEntry> expected = faked_host::catEntries(CONFIGURATION, 256);
    expected.push_back({2, "cat command failed", "UnixHostInfo::getTquClientName"});
    for (const LogEntry& entry : faked_host::catEntries(CONFIGURATION, 256))
        expected.push_back(entry);
    expected.push_back({2, "cat command failed", "UnixHostInfo::getTquClusterName"});
    EXPECT_THAT(faked_host::log(), ElementsAreArray(expected));
}

TEST_F(UnixHostInfoTest, CatThatCannotBeStartedIsAFailedOne)
{
    faked_host::setConfiguration("CLIENT_NAME = h1\nCLUSTER_NAME = c1\n");
    host().shellFails = true;
    EXPECT_EQ(probe.getTquClientName(), "<NULL>");
    EXPECT_EQ(probe.getTquClusterName(), "<NULL>");
    std::vector<LogEntry> expected = faked_host::catEntries(CONFIGURATION, -1);
    expected.push_back({2, "cat command failed", "UnixHostInfo::getTquClientName"});
    for (const LogEntry& entry : faked_host::catEntries(CONFIGURATION, -1))
        expected.push_back(entry);
    expected.push_back({2, "cat command failed", "UnixHostInfo::getTquClusterName"});
    EXPECT_THAT(faked_host::log(), ElementsAreArray(expected));
}

TEST_F(UnixHostInfoTest, ShippedSampleGivesTheSameNamesToTheProbeAndToThePlatformsReader)
{
    std::ostringstream sample;
    sample << std::ifstream(TQ_SOURCE_DIR "/packaging/kx.conf").rdbuf();
    faked_host::setConfiguration(sample.str());
    const tq::ConfigText configuration = tq::parseConfigText(sample.str());
    const std::pair<std::string, std::string> names[] = {{"CLIENT_NAME", probe.getTquClientName()},
                                                         {"CLUSTER_NAME", probe.getTquClusterName()}};
    for (const auto& [key, probed] : names) {
        SCOPED_TRACE(key);
        const tq::ConfigEntry* entry = tq::findConfigEntry(configuration, key);
        ASSERT_NE(entry, nullptr);
        EXPECT_NE(probed, "<NULL>");
        EXPECT_EQ(tq::configUpperCase(probed), tq::configUpperCase(entry->value));
        const std::string text = tq::configUpperCase(sample.str());
        EXPECT_EQ(text.find(key), text.rfind(key)) << "the probe reads any line that holds the name";
    }
}

TEST_F(UnixHostInfoTest, EachPieceOfALongLineIsALine)
{
    EXPECT_EQ(clientName("CLIENT_NAME = " + std::string(3000, 'A') + "\n"), std::string(2047 - 14, 'a'));
    EXPECT_EQ(clientName(std::string(2047, '#') + "CLIENT_NAME = h1\n"), "h1");
    EXPECT_EQ(clientName(std::string(2040, '#') + "CLIENT_NAME = h1\n"), "<NULL>") << "the name is torn";
}

TEST_F(UnixHostInfoTest, DamagedConfigurationsDoNoHarm)
{
    EXPECT_EQ(clientName(std::string("\0CLIENT_NAME = h1\nCLIENT_NAME = h\0002\n", 36)), "h")
        << "a line ends at a NUL for every rule";
    EXPECT_EQ(clientName(longLine('x')), "<NULL>");
    EXPECT_EQ(clientName("CLIENT_NAME = h1\r\n"), "h1");
    EXPECT_EQ(clientName("\xef\xbb\xbf"
                         "CLIENT_NAME = h1"),
              "h1");
}

TEST_F(UnixHostInfoTest, AddressesAreListedWithoutLoopbackAndUnprintableOnes)
{
    platform().addresses = {"127.0.0.1", "192.0.2.7", "::1", "2001:db8::7", "198.51.100.7"};
    platform().unprintableAddresses = {"198.51.100.7"};
    EXPECT_THAT(probe.getHostIP(), ElementsAre("192.0.2.7", "2001:db8::7"));
    EXPECT_THAT(platform().calls, ElementsAre("knet_getifaddrs 1 1", "knet_sockAddrNtoP 127.0.0.1 46",
                                              "knet_sockAddrNtoP 192.0.2.7 46", "knet_sockAddrNtoP ::1 46",
                                              "knet_sockAddrNtoP 2001:db8::7 46",
                                              "knet_sockAddrNtoP 198.51.100.7 46", "knet_freeaddrinfo"));
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(UnixHostInfoTest, OnlyLoopbackAddressesGiveAnEmptyList)
{
    platform().addresses = {"127.0.0.1", "::1"};
    EXPECT_THAT(probe.getHostIP(), IsEmpty());
}

TEST_F(UnixHostInfoTest, NoAddressesGiveAnEmptyList)
{
    EXPECT_THAT(probe.getHostIP(), IsEmpty());
}

TEST_F(UnixHostInfoTest, FailedEnumerationGivesTheMarkerAndFreesNothing)
{
    platform().ifaddrsStatus = 13;
    EXPECT_THAT(probe.getHostIP(), ElementsAre("<NULL>"));
    EXPECT_THAT(platform().calls, ElementsAre("knet_getifaddrs 1 1"));
}

TEST_F(UnixHostInfoTest, HostNamesEndAtTheFirstAddress)
{
    platform().hostNames = {"h1.example", "h1", "192.0.2.7", "later.example"};
    EXPECT_THAT(probe.getHostName(), ElementsAre("h1.example", "h1"));
    EXPECT_THAT(platform().calls, ElementsAre("knet_cached_gethostent h1.example", "knet_free_knet_hostent"));
    EXPECT_THAT(platform().log, IsEmpty());
}

TEST_F(UnixHostInfoTest, HostNamesMayEndWithTheList)
{
    platform().hostNames = {"h1.example"};
    EXPECT_THAT(probe.getHostName(), ElementsAre("h1.example"));
}

TEST_F(UnixHostInfoTest, EntryThatBeginsWithAnAddressGivesNoNames)
{
    platform().hostNames = {"2001:db8::7", "h1"};
    EXPECT_THAT(probe.getHostName(), IsEmpty());
    platform().hostNames = {};
    EXPECT_THAT(probe.getHostName(), IsEmpty());
}

TEST_F(UnixHostInfoTest, HostNameThatCannotBeHadGivesTheMarker)
{
    host().hostNameFails = true;
    EXPECT_THAT(probe.getHostName(), ElementsAre("<NULL>"));
    EXPECT_THAT(platform().calls, IsEmpty());
}

TEST_F(UnixHostInfoTest, HostNameOf64CharactersDoesNotFitAndGivesTheMarker)
{
    host().hostName = std::string(63, 'h');
    platform().hostNames = {"h1"};
    EXPECT_THAT(probe.getHostName(), ElementsAre("h1"));
    host().hostName = std::string(64, 'h');
    EXPECT_THAT(probe.getHostName(), ElementsAre("<NULL>"));
}

TEST_F(UnixHostInfoTest, FailedLookupAndMissingEntryGiveTheMarker)
{
    platform().hostentStatus = 11;
    EXPECT_THAT(probe.getHostName(), ElementsAre("<NULL>"));
    platform().hostentStatus = 0;
    platform().hostentMissing = true;
    EXPECT_THAT(probe.getHostName(), ElementsAre("<NULL>"));
    EXPECT_EQ(platform().count("knet_free_knet_hostent"), 0U);
}

} // namespace
