#include "enroll/status_report.h"

#include "platform/json.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using enroll::formatStatusJson;
using enroll::formatStatusLines;
using enroll::formatStatusMetrics;
using enroll::IdentityFacts;
using enroll::judge;
using enroll::ServerFacts;
using enroll::TokenState;
using enroll::Verdict;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr std::int64_t NOW = 1'795'162'242; // 2026-11-20 08:10:42 UTC
constexpr std::int64_t DAY = 86400;

IdentityFacts host(std::optional<std::int64_t> end = NOW + 365 * DAY)
{
    return {CERT_TYPE_HOST, "6f0f0000-1111-4222-8333-444455556666", "h1.example", end, TokenState::valid};
}

ServerFacts inStep(const std::string& name = "m1")
{
    ServerFacts facts;
    facts.server = name;
    facts.identities = {host()};
    facts.lastAttempt = NOW - 60;
    facts.lastRecordSent = NOW - 3600;
    return facts;
}

ServerFacts behind(std::optional<int> status)
{
    ServerFacts facts = inStep("m2");
    facts.behind = true;
    facts.status = status;
    return facts;
}

ServerFacts withEnd(std::optional<std::int64_t> end)
{
    ServerFacts facts = inStep();
    facts.identities = {host(end)};
    return facts;
}

} // namespace

TEST(Judge, AllWellOrNot)
{
    EXPECT_EQ(judge({}, NOW), Verdict::noIdentity);
    EXPECT_EQ(judge({inStep(), inStep("m2")}, NOW), Verdict::allWell);
    EXPECT_EQ(judge({inStep(), behind(25)}, NOW), Verdict::needsAttention);
    EXPECT_EQ(judge({inStep(), behind(std::nullopt)}, NOW), Verdict::needsAttention);
}

TEST(Judge, ACertificateNeedsAttentionFrom30DaysBeforeItsEndOn)
{
    EXPECT_EQ(judge({withEnd(NOW + 30 * DAY + 1)}, NOW), Verdict::allWell);
    EXPECT_EQ(judge({withEnd(NOW + 30 * DAY)}, NOW), Verdict::needsAttention);
    EXPECT_EQ(judge({withEnd(NOW - 1)}, NOW), Verdict::needsAttention);
    EXPECT_EQ(judge({withEnd(std::nullopt)}, NOW), Verdict::needsAttention);
    ServerFacts cluster = inStep();
    cluster.identities.push_back(host(NOW + DAY));
    EXPECT_EQ(judge({cluster}, NOW), Verdict::needsAttention);
}

TEST(Judge, AProblemWithAFileNeedsAttention)
{
    ServerFacts facts = inStep();
    facts.problems = {"the lock is not a regular file"};
    EXPECT_EQ(judge({facts}, NOW), Verdict::needsAttention);
}

TEST(FormatStatusLines, OneLineAServer)
{
    ServerFacts never = behind(25);
    never.lastAttempt.reset();
    never.lastRecordSent.reset();
    never.identities.push_back({CERT_TYPE_CLUSTER, "c-id", "c.example", NOW + 10 * DAY, TokenState::none});
    never.problems = {"something is wrong"};
    EXPECT_EQ(formatStatusLines({inStep(), never}, NOW),
              "m1: in step; last record sent 2026-11-20 07:10:42 UTC; last attempt 2026-11-20 08:09:42 UTC; "
              "host 6f0f0000-1111-4222-8333-444455556666, certificate ends 2027-11-20 08:10:42 UTC, "
              "token valid\n"
              "m2: behind with status 25 (The server could not be reached because its name is unknown or it "
              "refused the connection); last record sent never; last attempt never; "
              "host 6f0f0000-1111-4222-8333-444455556666, certificate ends 2027-11-20 08:10:42 UTC, "
              "token valid; cluster c-id, certificate ends 2026-11-30 08:10:42 UTC (in 10 days), token none; "
              "something is wrong\n");
}

TEST(FormatStatusLines, EndedUnknownAndUnreadable)
{
    EXPECT_THAT(formatStatusLines({withEnd(NOW - 1)}, NOW), HasSubstr("08:10:41 UTC (ended), token valid"));
    EXPECT_THAT(formatStatusLines({withEnd(std::nullopt)}, NOW),
                HasSubstr("certificate ends unknown, token"));
    EXPECT_THAT(formatStatusLines({behind(std::nullopt)}, NOW),
                HasSubstr("m2: behind (The status of the last update cannot be read); "));
    ServerFacts expired = inStep();
    expired.identities[0].token = TokenState::expired;
    EXPECT_THAT(formatStatusLines({expired}, NOW), HasSubstr("token expired\n"));
}

TEST(FormatStatusLines, NoIdentitySaysWhatToDo)
{
    EXPECT_THAT(formatStatusLines({}, NOW), HasSubstr("no identity; ask"));
}

TEST(FormatStatusJson, HasEveryKeyOfEveryServer)
{
    ServerFacts failed = behind(7620);
    failed.lastRecordSent.reset();
    failed.identities[0].certificateEnd.reset();
    failed.problems = {"a \"quoted\" sentence"};
    EXPECT_EQ(formatStatusJson({inStep(), failed}),
              R"({"servers": [{"server": "m1", "state": "inStep", "status": null, "statusText": null, )"
              R"("lastAttempt": 1795162182, "lastRecordSent": 1795158642, "identities": [{"type": "host", )"
              R"("hostId": "6f0f0000-1111-4222-8333-444455556666", "hostName": "h1.example", )"
              R"("certificateEnd": 1826698242, "token": "valid"}], "problems": []}, )"
              R"({"server": "m2", "state": "behind", "status": 7620, )"
              R"("statusText": "The web service did not answer in time", "lastAttempt": 1795162182, )"
              R"("lastRecordSent": null, "identities": [{"type": "host", )"
              R"("hostId": "6f0f0000-1111-4222-8333-444455556666", "hostName": "h1.example", )"
              R"("certificateEnd": null, "token": "valid"}], "problems": ["a \"quoted\" sentence"]}]})"
              "\n");
    EXPECT_EQ(formatStatusJson({}), "{\"servers\": []}\n");
}

TEST(FormatStatusJson, AStatusThatCannotBeReadIsNullWithWords)
{
    EXPECT_THAT(formatStatusJson({behind(std::nullopt)}),
                HasSubstr(R"("state": "behind", "status": null, "statusText": "The status of the last )"));
}

TEST(FormatStatusMetrics, EachMetricHasItsHeadAndItsValues)
{
    const std::string text = formatStatusMetrics({inStep(), behind(25)}, NOW);
    EXPECT_THAT(text, HasSubstr("# TYPE tqhostdb_last_attempt_seconds gauge\n"
                                "tqhostdb_last_attempt_seconds{server=\"m1\"} 60\n"
                                "tqhostdb_last_attempt_seconds{server=\"m2\"} 60\n"));
    EXPECT_THAT(text, HasSubstr("# TYPE tqhostdb_last_record_sent_seconds gauge\n"
                                "tqhostdb_last_record_sent_seconds{server=\"m1\"} 3600\n"));
    EXPECT_THAT(text, HasSubstr("# TYPE tqhostdb_last_status gauge\n"
                                "tqhostdb_last_status{server=\"m1\"} 0\n"
                                "tqhostdb_last_status{server=\"m2\"} 25\n"));
    EXPECT_THAT(text, HasSubstr("# TYPE tqhostdb_certificate_end_seconds gauge\n"
                                "tqhostdb_certificate_end_seconds{server=\"m1\",type=\"host\"} 31536000\n"));
    EXPECT_EQ(text.back(), '\n');
}

TEST(FormatStatusMetrics, NeverAndUnknownHaveNoValueAndAnEndedCertificateANegativeOne)
{
    ServerFacts facts = withEnd(std::nullopt);
    facts.lastAttempt.reset();
    facts.lastRecordSent.reset();
    const std::string text = formatStatusMetrics({facts}, NOW);
    EXPECT_THAT(text, Not(HasSubstr("tqhostdb_last_attempt_seconds{")));
    EXPECT_THAT(text, Not(HasSubstr("tqhostdb_last_record_sent_seconds{")));
    EXPECT_THAT(text, Not(HasSubstr("tqhostdb_certificate_end_seconds{")));
    EXPECT_THAT(formatStatusMetrics({withEnd(NOW - 5)}, NOW), HasSubstr("type=\"host\"} -5\n"));
    EXPECT_THAT(formatStatusMetrics({behind(std::nullopt)}, NOW), HasSubstr("{server=\"m2\"} -1\n"));
}

TEST(FormatStatusMetrics, LabelValuesAreEscaped)
{
    EXPECT_THAT(formatStatusMetrics({inStep("a\"b\\c\nd")}, NOW),
                HasSubstr(R"(tqhostdb_last_status{server="a\"b\\c\nd"} 0)"));
}
