#include "platform/http_status.h"

#include <gtest/gtest.h>

using tq::faultOfTransfer;
using tq::isCertificateAlert;
using tq::TransferEnd;

namespace {

int statusOf(int curlCode)
{
    return faultOfTransfer({.curlCode = curlCode}).status;
}

struct CodeCase {
    int curlCode;
    int status;
};

} // namespace

TEST(FaultOfTransfer, EveryCodeThatHasAStatusOfItsOwn)
{
    const CodeCase cases[] = {{0, 0},     {6, 25},    {7, 25},    {28, 7620}, {60, 7621},
                              {51, 7621}, {83, 7621}, {35, 7621}, {58, 7622}, {98, 7622},
                              {1, 7624},  {8, 7624},  {16, 7624}, {18, 7624}, {52, 7624},
                              {55, 7624}, {56, 7624}, {61, 7624}, {92, 7624}, {3, 7626}};
    for (const CodeCase& each : cases)
        EXPECT_EQ(statusOf(each.curlCode), each.status) << "libcurl code " << each.curlCode;
}

TEST(FaultOfTransfer, EverythingElseIsARequestThatCouldNotBeMade)
{
    for (const int code : {2, 4, 5, 9, 22, 23, 26, 27, 42, 43, 47, 63, 65, 77, 80, 100, 999, -1})
        EXPECT_EQ(statusOf(code), 7626) << "libcurl code " << code;
}

TEST(FaultOfTransfer, OurOwnCountMakesAWriteErrorAReplyOverTheLimit)
{
    EXPECT_EQ(faultOfTransfer({.curlCode = 23, .overLimit = true}).status, 7623);
    EXPECT_EQ(faultOfTransfer({.curlCode = 23}).status, 7626);
    EXPECT_EQ(faultOfTransfer({.curlCode = 28, .overLimit = true}).status, 7620);
}

TEST(FaultOfTransfer, ARefusedRepeatIsALostReply)
{
    EXPECT_EQ(faultOfTransfer({.curlCode = 42, .repeatRefused = true}).status, 7624);
}

TEST(FaultOfTransfer, ACertificateAlertTellsARefusedCertificateFromOtherEnds)
{
    for (const int code : {35, 55, 56, 60, 98})
        EXPECT_EQ(faultOfTransfer({.curlCode = code, .certificateRefused = true}).status, 7622) << code;
    EXPECT_EQ(faultOfTransfer({.curlCode = 35}).status, 7621);
    EXPECT_EQ(faultOfTransfer({.curlCode = 56}).status, 7624);
    EXPECT_EQ(faultOfTransfer({.curlCode = 0, .certificateRefused = true}).status, 0);
}

TEST(FaultOfTransfer, MemoryThatRunsOutWithinTheHeadIsAnEndlessHeader)
{
    EXPECT_EQ(faultOfTransfer({.curlCode = 27, .headUnfinished = true}).status, 7624);
    EXPECT_EQ(faultOfTransfer({.curlCode = 27}).status, 7626);
    EXPECT_EQ(faultOfTransfer({.curlCode = 3, .headUnfinished = true}).status, 7626);
}

TEST(FaultOfTransfer, ACertificateOfAnotherTimeAsksForALookAtTheClocks)
{
    constexpr const char* LOOK = "check the clocks of this host and of the server";
    for (const long verification : {9L, 10L}) { // not yet valid, has expired
        EXPECT_STREQ(faultOfTransfer({.curlCode = 60, .verification = verification}).advice, LOOK);
        EXPECT_STREQ(faultOfTransfer({.curlCode = 60, .verification = verification}).cause,
                     "the server's certificate is not trusted");
        EXPECT_STREQ(faultOfTransfer({.curlCode = 28, .verification = verification}).advice, "");
    }
    for (const long verification : {0L, 18L, 19L, 20L, 62L})
        EXPECT_STREQ(faultOfTransfer({.curlCode = 60, .verification = verification}).advice, "");
}

TEST(FaultOfTransfer, EveryFaultHasWords)
{
    for (int code = 1; code < 100; ++code)
        EXPECT_STRNE(faultOfTransfer({.curlCode = code}).cause, "") << "libcurl code " << code;
}

TEST(IsCertificateAlert, KnowsTheAlertsThatRefuseACertificate)
{
    // 41 no certificate, 42 bad, 43 unsupported, 44 revoked, 45 expired, 46 unknown, 48 unknown authority,
    // 49 access denied, 111 not obtainable, 113 bad status, 114 bad digest, 116 required.
    for (const int alert : {41, 42, 43, 44, 45, 46, 48, 49, 111, 113, 114, 116})
        EXPECT_TRUE(isCertificateAlert(alert)) << alert;
}

TEST(IsCertificateAlert, LeavesOtherAlertsAlone)
{
    // 0 close notify, 10 unexpected message, 20 bad record, 40 handshake failure, 70 version, 80 internal.
    for (const int alert : {-1, 0, 10, 20, 40, 47, 50, 70, 80, 112, 120, 42 + 256})
        EXPECT_FALSE(isCertificateAlert(alert)) << alert;
}
