#include "masterd/connection_workers.h"

#include <utility>

namespace masterd {

namespace {

/// The HTTP library matches a header of 8 KiB by regular expressions, which recurse for each character; the
/// 2 MiB that a thread gets where the stack's limit is lifted do not hold that.
constexpr std::size_t STACK_BYTES = std::size_t{8} << 20;

class ThreadAttributes {
public:
    ThreadAttributes() : made_(pthread_attr_init(&attributes_) == 0) {}
    ThreadAttributes(const ThreadAttributes&) = delete;
    ThreadAttributes& operator=(const ThreadAttributes&) = delete;
    ~ThreadAttributes()
    {
        if (made_)
            pthread_attr_destroy(&attributes_);
    }

    [[nodiscard]] bool setStackSize(std::size_t bytes)
    {
        return made_ && pthread_attr_setstacksize(&attributes_, bytes) == 0;
    }
    [[nodiscard]] const pthread_attr_t* get() const { return &attributes_; }

private:
    pthread_attr_t attributes_{};
    bool made_;
};

} // namespace

ConnectionWorkers::JoiningThread::JoiningThread(JoiningThread&& other) noexcept
    : thread_(std::exchange(other.thread_, std::nullopt))
{
}

ConnectionWorkers::JoiningThread::~JoiningThread()
{
    if (thread_)
        pthread_join(*thread_, nullptr);
}

ConnectionWorkers::ConnectionWorkers(std::size_t most) : most_(most)
{
    tasks_.reserve(most);
    threads_.reserve(most);
}

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
    tasks_.push_back(std::move(task));
    taskAdded_.notify_one();
}

/// False when there are as many as there may be, or the machine has no thread left: those there are must do.
bool ConnectionWorkers::startWorker()
{
    ThreadAttributes attributes;
    pthread_t thread{};
    if (threads_.size() >= most_ || !attributes.setStackSize(STACK_BYTES) ||
        pthread_create(&thread, attributes.get(), runWorker, this) != 0)
        return false;
    threads_.emplace_back(thread);
    return true;
}

void* ConnectionWorkers::runWorker(void* workers)
{
    static_cast<ConnectionWorkers*>(workers)->work();
    return nullptr;
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
        const std::function<void()> task = std::move(tasks_.back());
        tasks_.pop_back();
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
    threads_.clear();
}

} // namespace masterd
