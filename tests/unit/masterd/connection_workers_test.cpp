#include "masterd/connection_workers.h"

#include "tests/unit/masterd/failing_calls.h"

#include <atomic>
#include <future>
#include <gtest/gtest.h>
#include <thread>

namespace {

using masterd::ConnectionWorkers;

TEST(ConnectionWorkers, RunEveryTaskBeforeTheyEnd)
{
    std::atomic<int> done = 0;
    ConnectionWorkers workers(4);
    for (int i = 0; i < 1000; ++i)
        workers.enqueue([&] { ++done; });
    workers.shutdown();
    EXPECT_EQ(done, 1000);
}

TEST(ConnectionWorkers, TaskRunsBesideOnesThatWait)
{
    std::promise<void> release;
    const std::shared_future<void> released = release.get_future().share();
    std::promise<void> ran;
    ConnectionWorkers workers(8);
    for (int i = 0; i < 7; ++i)
        workers.enqueue([released] { released.wait(); });
    workers.enqueue([&] { ran.set_value(); });
    EXPECT_EQ(ran.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
    release.set_value();
    workers.shutdown();
}

TEST(ConnectionWorkers, FurtherTaskWaitsForAFreeWorker)
{
    std::promise<void> release;
    const std::shared_future<void> released = release.get_future().share();
    std::atomic<bool> accepted = false;
    ConnectionWorkers workers(1);
    workers.enqueue([released] { released.wait(); });
    std::thread second([&] {
        workers.enqueue([] {});
        accepted = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(accepted);
    release.set_value();
    second.join();
    EXPECT_TRUE(accepted);
    workers.shutdown();
}

TEST(ConnectionWorkers, TakeTasksWithoutMemory)
{
    std::atomic<int> done = 0;
    ConnectionWorkers workers(4);
    {
        const tests::FailingAllocation withoutMemory;
        for (int i = 0; i < 1000; ++i)
            workers.enqueue([&] { ++done; });
    }
    workers.shutdown();
    EXPECT_EQ(done, 1000);
}

TEST(ConnectionWorkers, MayEndWithoutAnyTask)
{
    ConnectionWorkers workers(2);
    EXPECT_NO_THROW(workers.shutdown());
}

} // namespace
