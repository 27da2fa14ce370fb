/// The threads that connections are served on.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <httplib.h>
#include <mutex>
#include <queue>
#include <thread>
#include <vector>

namespace masterd {

/// One thread a connection, started as they come and kept, up to a number: far more than a fleet has
/// requests in hand at once, so that connections that say nothing leave room for those that do.
class ConnectionWorkers : public httplib::TaskQueue {
public:
    explicit ConnectionWorkers(std::size_t most) : most_(most) {}

    /// Waits while all workers are busy, and so leaves further connections to the kernel's queue.
    void enqueue(std::function<void()> task) override;
    /// Returns when every task has run.
    void shutdown() override;

private:
    bool startWorker();
    void work();

    std::size_t most_;
    std::mutex mutex_;
    std::condition_variable taskAdded_;
    std::condition_variable workerFreed_;
    std::queue<std::function<void()>> tasks_;
    std::size_t free_ = 0;
    bool ending_ = false;
    std::vector<std::thread> threads_;
};

} // namespace masterd
