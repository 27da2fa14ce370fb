/// The threads that connections are served on.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <pthread.h>
#include <vector>

namespace masterd {

/// One thread a connection, started as they come and kept, up to a number: far more than a fleet has
/// requests in hand at once, so that connections that say nothing leave room for those that do.
class ConnectionWorkers {
public:
    explicit ConnectionWorkers(std::size_t most);
    ConnectionWorkers(const ConnectionWorkers&) = delete;
    ConnectionWorkers& operator=(const ConnectionWorkers&) = delete;
    /// Returns when every task has run.
    ~ConnectionWorkers() { shutdown(); }

    /// Waits while all workers are busy, and so leaves further connections to the kernel's queue. Runs the
    /// task itself when the machine has no thread at all. Allocates nothing: it works without memory, too.
    void enqueue(std::function<void()> task);
    /// Returns when every task has run; none may follow.
    void shutdown();

private:
    /// Joins a thread at the end of its life.
    class JoiningThread {
    public:
        explicit JoiningThread(pthread_t thread) : thread_(thread) {}
        JoiningThread(JoiningThread&& other) noexcept;
        JoiningThread& operator=(JoiningThread&&) = delete;
        ~JoiningThread();

    private:
        std::optional<pthread_t> thread_;
    };

    bool startWorker();
    static void* runWorker(void* workers);
    void work();

    std::size_t most_;
    std::mutex mutex_;
    std::condition_variable taskAdded_;
    std::condition_variable workerFreed_;
    std::vector<std::function<void()>> tasks_; ///< never more than there are workers
    std::size_t free_ = 0;
    bool ending_ = false;
    std::vector<JoiningThread> threads_;
};

} // namespace masterd
