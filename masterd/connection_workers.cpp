#include "masterd/connection_workers.h"

#include <system_error>

namespace masterd {

void ConnectionWorkers::enqueue(std::function<void()> task)
{
    std::unique_lock lock(mutex_);
    if (free_ <= tasks_.size() && !startWorker()) {
        if (threads_.empty()) { // no thread to be had at all
            lock.unlock();
            task();
            return;
        }
        workerFreed_.wait(lock, [this] { return free_ > tasks_.size(); });
    }
    tasks_.push(std::move(task));
    taskAdded_.notify_one();
}

bool ConnectionWorkers::startWorker()
{
    if (threads_.size() >= most_)
        return false;
    try {
        threads_.emplace_back([this] { work(); });
    } catch (const std::system_error&) { // the machine has no thread left: make do with those there are
        return false;
    }
    return true;
}

void ConnectionWorkers::work()
{
    std::unique_lock lock(mutex_);
    for (;;) {
        ++free_;
        workerFreed_.notify_one();
        taskAdded_.wait(lock, [this] { return !tasks_.empty() || ending_; });
        --free_;
        if (tasks_.empty())
            return;
        const std::function<void()> task = std::move(tasks_.front());
        tasks_.pop();
        lock.unlock();
        task();
        lock.lock();
    }
}

void ConnectionWorkers::shutdown()
{
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    taskAdded_.notify_all();
    for (std::thread& thread : threads_)
        thread.join();
}

} // namespace masterd
