#include "masterd/parts_ahead.h"

#include "tests/unit/masterd/default_stack_size.h"

#include <atomic>
#include <future>
#include <gtest/gtest.h>
#include <stdexcept>

namespace {

using masterd::PartsAhead;

/// "1" to "3", then empty texts; counts what was asked for.
struct ThreeParts {
    std::atomic<int>& asked;

    std::string operator()() const
    {
        const int number = ++asked;
        return number <= 3 ? std::to_string(number) : "";
    }
};

std::string readAll(PartsAhead& parts)
{
    std::string all;
    for (std::string part = parts.next(); !part.empty(); part = parts.next())
        all += part;
    return all;
}

TEST(PartsAhead, ComeInOrderAndEndWithAnEmptyOne)
{
    std::atomic<int> asked = 0;
    PartsAhead parts(ThreeParts{asked});
    EXPECT_EQ(readAll(parts), "123");
    EXPECT_EQ(parts.next(), "");
    EXPECT_EQ(asked, 4);
}

TEST(PartsAhead, NextOneIsFetchedWhileTheOneBeforeIsInHand)
{
    std::promise<void> second;
    int asked = 0;
    PartsAhead parts([&]() -> std::string {
        if (++asked == 2)
            second.set_value();
        return "part";
    });
    EXPECT_EQ(parts.next(), "part");
    EXPECT_EQ(second.get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
}

TEST(PartsAhead, AreNeverMoreThanOneAhead)
{
    std::atomic<int> asked = 0;
    std::atomic<int> wanted = 0;
    std::atomic<bool> isTooFar = false;
    PartsAhead parts([&]() -> std::string {
        // One ahead of the part that the caller has, or waits for.
        isTooFar = isTooFar || asked > wanted;
        return ++asked <= 1000 ? "x" : "";
    });
    do {
        ++wanted;
    } while (!parts.next().empty());
    EXPECT_EQ(asked, 1001);
    EXPECT_FALSE(isTooFar);
}

TEST(PartsAhead, FailureComesInItsPlaceAndIsTheEnd)
{
    int asked = 0;
    PartsAhead parts([&]() -> std::string {
        if (++asked == 2)
            throw std::runtime_error("cut off");
        return "part";
    });
    EXPECT_EQ(parts.next(), "part");
    EXPECT_THROW(parts.next(), std::runtime_error);
    EXPECT_THROW(parts.next(), std::runtime_error);
    EXPECT_EQ(asked, 2);
}

TEST(PartsAhead, NeedNotBeTakenToTheEnd)
{
    std::atomic<int> asked = 0;
    {
        PartsAhead parts(ThreeParts{asked});
        EXPECT_EQ(parts.next(), "1");
    }
    EXPECT_LE(asked, 2);
}

TEST(PartsAhead, ComeWithoutASecondThreadToo)
{
    const tests::DefaultStackSize moreThanThereIs(std::size_t{1} << 46);
    std::atomic<int> asked = 0;
    PartsAhead parts(ThreeParts{asked});
    EXPECT_EQ(asked, 0);
    EXPECT_EQ(readAll(parts), "123");
}

} // namespace
