#include "enroll/identity_list.h"

#include <gtest/gtest.h>

using enroll::describeEnd;
using enroll::formatIdentities;

namespace {

tq::Identity identity(const std::string& server, cert_type type, const std::string& hostName)
{
    tq::Identity made;
    made.server = server;
    made.certType = type;
    made.hostId = "6f0f0000-1111-4222-8333-444455556666";
    made.hostName = hostName;
    made.certificate = "absent.crt";
    return made;
}

} // namespace

TEST(DescribeEnd, IsAUtcTimeAndSaysWhenItIsOver)
{
    EXPECT_EQ(describeEnd(1795162242, 1795162242), "2026-11-20 08:10:42 UTC");
    EXPECT_EQ(describeEnd(1795162242, 1795162243), "2026-11-20 08:10:42 UTC (ended)");
    EXPECT_EQ(describeEnd(std::nullopt, 0), "unknown");
}

TEST(FormatIdentities, PutsEachIdentityOnALineInColumns)
{
    EXPECT_EQ(formatIdentities({identity("master1.example", CERT_TYPE_HOST, "h1.example"),
                                identity("m2", CERT_TYPE_CLUSTER, "c")},
                               0),
              "SERVER           TYPE     HOST ID                               HOST NAME   CERTIFICATE ENDS\n"
              "master1.example  host     6f0f0000-1111-4222-8333-444455556666  h1.example  unknown\n"
              "m2               cluster  6f0f0000-1111-4222-8333-444455556666  c           unknown\n");
}

TEST(FormatIdentities, NoIdentitiesGiveAnEmptyText)
{
    EXPECT_EQ(formatIdentities({}, 0), "");
}
