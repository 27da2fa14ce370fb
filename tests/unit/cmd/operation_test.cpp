#include "cmd/operation.h"

#include "cmd/process_values.h"
#include "tests/unit/cmd/command_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using fakes::LogEntry;
using testing::ElementsAre;
using TQCLNTDB::Operation;
using TQCLNTDB::OperationRun;

class PerformOperation : public testing::Test {
protected:
    void SetUp() override
    {
        command_run::reset();
        TQCLNTDB::progname = "tqhostdbcmd";
        TQCLNTDB::MasterServer = "m1";
    }

    OperationRun run_;
};

TEST_F(PerformOperation, NoneDoesNothing)
{
    TQCLNTDB::performOperation(run_);
    EXPECT_TRUE(fakes::platform().log.empty());
    EXPECT_TRUE(fakes::platform().calls.empty());
}

TEST_F(PerformOperation, AnInvalidRequestIsLoggedBehindTheBuffersEarlierText)
{
    run_.messages << "earlier\n";
    run_.line.operation = static_cast<Operation>(99); // the parser makes none such
    TQCLNTDB::performOperation(run_);
    EXPECT_THAT(fakes::platform().log,
                ElementsAre(LogEntry{16, "earlier\nInvalid Request \n", "tqhostdbcmd"}));
}

TEST_F(PerformOperation, TheReadRecordAndTheListStayWithTheRun)
{
    command_run::answer(200, R"({"uuid":"7"})");
    run_.line.operation = Operation::read;
    run_.line.hostId = "7";
    TQCLNTDB::performOperation(run_);
    EXPECT_EQ(run_.record.hostId, "7");

    command_run::answer(200, R"({"hosts":[{"uuid":"8"},{"uuid":"9"}]})");
    run_.line.operation = Operation::readAllHosts;
    TQCLNTDB::performOperation(run_);
    ASSERT_EQ(run_.hosts.size(), 2U);
    EXPECT_EQ(run_.hosts[1].hostId, "9");
}

} // namespace
