#include "masterd/parts_ahead.h"

#include <system_error>
#include <utility>

namespace masterd {

PartsAhead::PartsAhead(std::function<std::string()> fetch) : fetch_(std::move(fetch))
{
    try {
        thread_ = std::thread([this] { fetchAhead(); });
    } catch (const std::system_error& /*there is no thread to be had*/) {
        // next() fetches by itself
    }
}

PartsAhead::~PartsAhead()
{
    {
        const std::lock_guard lock(mutex_);
        isEnded_ = true;
    }
    changed_.notify_one();
    if (thread_.joinable())
        thread_.join();
}

std::string PartsAhead::next()
{
    if (!thread_.joinable())
        return fetch_();
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return part_ || isEnded_; });
    if (!part_ && failure_)
        std::rethrow_exception(failure_);
    std::string part = std::exchange(part_, std::nullopt).value_or("");
    lock.unlock();
    changed_.notify_one();
    return part;
}

void PartsAhead::fetchAhead()
{
    std::unique_lock lock(mutex_);
    while (!isEnded_) {
        lock.unlock();
        std::optional<std::string> part;
        std::exception_ptr failure;
        try {
            part = fetch_();
        } catch (...) {
            failure = std::current_exception();
        }
        lock.lock();
        isEnded_ = isEnded_ || !part || part->empty();
        part_ = std::move(part);
        failure_ = failure;
        changed_.notify_one();
        changed_.wait(lock, [this] { return !part_ || isEnded_; });
    }
}

} // namespace masterd
