// The files of packaging/ as their readers see them.
#include "platform/cluster.h"
#include "platform/config.h"
#include "platform/config_text.h"
#include "platform/paths.h"
#include "tests/fakes/log/recording_log.h"
#include "tests/unit/test_files.h"

#include <cctype>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>
#include <set>

using fakes::recordedLog;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;
using testing::UnorderedElementsAre;

namespace {

const std::string PACKAGING = std::string(TQ_SOURCE_DIR) + "/packaging/";

std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

std::string lowerCase(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

/// The host probe's own rule: of any line that holds the name the text after the last "=" and one more
/// character, to the line's end and in lower case.
std::vector<std::string> valuesOfTheHostProbe(const std::string& text, const std::string& name)
{
    std::vector<std::string> values;
    for (const std::string& line : linesOf(lowerCase(text))) {
        if (line.find(name) != std::string::npos)
            values.push_back(line.substr(std::min(line.rfind('=') + 2, line.size())));
    }
    return values;
}

class Samples : public testing::Test {
protected:
    Samples()
    {
        tests::freshDirectory(TQ_VAR_DIR);
        recordedLog().clear();
    }
};

} // namespace

TEST_F(Samples, ConfigurationIsReadWithoutAnEntry)
{
    const std::string text = tests::readText(PACKAGING + "kx.conf");
    tests::writeText(TQ_CONFIG_FILE, text);
    ASSERT_EQ(TQ_read_master_config(), 0);
    EXPECT_THAT(get_master_config_ptr()->serverNames,
                Optional(ElementsAre("master1.example", "master2.example")));
    std::set<std::string> keys;
    for (const auto& [key, value] : get_master_config_ptr()->values)
        keys.insert(key);
    EXPECT_THAT(keys,
                UnorderedElementsAre("CLIENT_NAME", "CLUSTER_NAME", "MACHINE_TQU_TYPE",
                                     "DISABLE_CLUSTER_AUTO_DISCOVERY", "DEBUG_LOG_LEVEL", "DEBUG_LOG_DAYS",
                                     "WEB_CONNECT_SECONDS", "WEB_TRANSFER_SECONDS", "WEB_MAX_REPLY_MB"));
    int flag = -1;
    EXPECT_EQ(kxconfGetKeyValPairAsBool(get_master_config_ptr(), "DISABLE_CLUSTER_AUTO_DISCOVERY", &flag), 0);
    EXPECT_EQ(flag, 0);
    tq::readPlatformSettings();
    EXPECT_THAT(recordedLog(), IsEmpty());
}

TEST_F(Samples, ConfigurationShowsTheDefaultsOfThePlatform)
{
    tests::writeText(TQ_CONFIG_FILE, tests::readText(PACKAGING + "kx.conf"));
    const tq::PlatformSettings sample = tq::readPlatformSettings();
    const tq::PlatformSettings standard;
    EXPECT_EQ(sample.debugLogLevel, standard.debugLogLevel);
    EXPECT_EQ(sample.debugLogDays, standard.debugLogDays);
    EXPECT_EQ(sample.webConnectSeconds, standard.webConnectSeconds);
    EXPECT_EQ(sample.webTransferSeconds, standard.webTransferSeconds);
    EXPECT_EQ(sample.webMaxReplyMegabytes, standard.webMaxReplyMegabytes);
}

TEST_F(Samples, HostProbeAndConfigurationReaderAgreeOnTheTwoNames)
{
    const std::string text = tests::readText(PACKAGING + "kx.conf");
    EXPECT_THAT(valuesOfTheHostProbe(text, "client_name"), ElementsAre("host1.example"));
    EXPECT_THAT(valuesOfTheHostProbe(text, "cluster_name"), ElementsAre("cluster1.example"));
    const tq::ConfigText config = tq::parseConfigText(text);
    EXPECT_EQ(tq::findConfigEntry(config, "CLIENT_NAME")->value, "host1.example");
    EXPECT_EQ(tq::findConfigEntry(config, "CLUSTER_NAME")->value, "cluster1.example");
}

TEST_F(Samples, ConfigurationHasOneBlankOnEachSideOfTheSeparatorAndNoneBehind)
{
    const std::regex keyLine("[A-Z_]+ = [^ ].*[^ ]|[A-Z_]+ = [^ ]");
    for (const std::string& line : linesOf(tests::readText(PACKAGING + "kx.conf"))) {
        if (!line.empty() && line.front() != '#') {
            EXPECT_TRUE(std::regex_match(line, keyLine)) << "[" << line << "]";
        }
    }
}

TEST_F(Samples, OnlineTriggerMakesThisTheActiveNode)
{
    ASSERT_EQ(std::system((PACKAGING + "cluster-online").c_str()), 0);
    EXPECT_EQ(IsNodeClustered(0), 1);
    EXPECT_EQ(IsClustered(0), 1);
    EXPECT_EQ(IsActive(0, 0), 1);
    EXPECT_THAT(tests::namesIn(TQ_VAR_DIR), ElementsAre("cluster.state"));
    EXPECT_EQ(tests::modeOf(TQ_CLUSTER_STATE_FILE), 0644U);
    EXPECT_THAT(recordedLog(), IsEmpty());
}

TEST_F(Samples, OfflineTriggerLeavesAPassiveNodeOfTheCluster)
{
    ASSERT_EQ(std::system((PACKAGING + "cluster-online").c_str()), 0);
    ASSERT_EQ(std::system((PACKAGING + "cluster-offline").c_str()), 0);
    EXPECT_EQ(IsNodeClustered(0), 1);
    EXPECT_EQ(IsClustered(0), 1);
    EXPECT_EQ(IsActive(0, 0), 0);
    EXPECT_THAT(tests::namesIn(TQ_VAR_DIR), ElementsAre("cluster.state"));
}

TEST_F(Samples, TriggerThatCannotWriteFailsAndLeavesTheOldStateAlone)
{
    std::filesystem::create_directory(TQ_CLUSTER_STATE_FILE);
    EXPECT_NE(std::system((PACKAGING + "cluster-online 2>/dev/null").c_str()), 0);
    EXPECT_THAT(tests::namesIn(TQ_VAR_DIR), ElementsAre("cluster.state"));
}
