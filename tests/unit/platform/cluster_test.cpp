#include "platform/cluster.h"

#include "platform/paths.h"
#include "tests/fakes/log/recording_log.h"
#include "tests/unit/test_files.h"

#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

using fakes::countRecorded;
using fakes::recordedLog;
using testing::IsEmpty;

namespace {

using Answers = std::array<int, 3>; ///< node clustered, clustered, active

class ClusterState : public testing::Test {
protected:
    ClusterState()
    {
        tests::freshDirectory(TQ_VAR_DIR);
        recordedLog().clear();
    }

    static Answers answers() { return {IsNodeClustered(0), IsClustered(0), IsActive(0, 0)}; }

    static Answers answersFor(std::string_view text)
    {
        tests::writeText(TQ_CLUSTER_STATE_FILE, text);
        return answers();
    }
};

} // namespace

TEST_F(ClusterState, EachQuestionHasItsKey)
{
    EXPECT_EQ(answersFor("NODE_CLUSTERED = YES\n"), (Answers{1, 0, 0}));
    EXPECT_EQ(answersFor("CLUSTERED = YES\n"), (Answers{0, 1, 0}));
    EXPECT_EQ(answersFor("ACTIVE = YES\n"), (Answers{0, 0, 1}));
}

TEST_F(ClusterState, KeysAndYesHaveNoCaseAndTheLastLineHolds)
{
    EXPECT_EQ(answersFor("node_clustered = yes\r\nCLUSTERED=YES\nACTIVE = YES\nACTIVE = NO\n"),
              (Answers{1, 1, 0}));
}

TEST_F(ClusterState, AnotherTextMeansNo)
{
    EXPECT_EQ(answersFor("NODE_CLUSTERED = NO\nCLUSTERED = 1\nACTIVE = YES!\n"), (Answers{0, 0, 0}));
    EXPECT_EQ(answersFor(""), (Answers{0, 0, 0}));
    EXPECT_EQ(answersFor("NODE_CLUSTERED =\nCLUSTERED\n"), (Answers{0, 0, 0}));
}

TEST_F(ClusterState, NoFileMeansNoWithoutAnEntry)
{
    EXPECT_EQ(answers(), (Answers{0, 0, 0}));
    EXPECT_THAT(recordedLog(), IsEmpty());
}

TEST_F(ClusterState, UnreadableFileMeansNoWithAnEntry)
{
    std::filesystem::create_directory(TQ_CLUSTER_STATE_FILE);
    EXPECT_EQ(answers(), (Answers{0, 0, 0}));
    EXPECT_EQ(countRecorded(8, "Unable to open /usr/torqv/var/cluster.state: it is not a regular file"), 3U);

    tests::freshDirectory(TQ_VAR_DIR);
    std::filesystem::create_symlink("/proc/self/mem", TQ_CLUSTER_STATE_FILE);
    EXPECT_EQ(answers(), (Answers{0, 0, 0}));
    EXPECT_EQ(countRecorded(16, "Unable to read /usr/torqv/var/cluster.state: Input/output error"), 3U);
}

TEST_F(ClusterState, ChangesAreSeenByTheNextQuestion)
{
    EXPECT_EQ(answersFor("ACTIVE = YES\n"), (Answers{0, 0, 1}));
    EXPECT_EQ(answersFor("ACTIVE = NO\n"), (Answers{0, 0, 0}));
}
