#include "masterd/commit_group.h"

#include <utility>

namespace masterd {

void CommitGroup::run(std::function<void()> change)
{
    Change own{std::move(change)};
    std::unique_lock lock(mutex_);
    waiting_.push_back(&own);
    own.turn.wait(lock, [&] { return own.isDone || (!isLed_ && waiting_.front() == &own); });
    if (!own.isDone)
        lead(lock);
    if (own.failure)
        std::rethrow_exception(own.failure);
}

std::size_t CommitGroup::waiting() const
{
    const std::lock_guard lock(mutex_);
    return waiting_.size();
}

/// Takes all that wait, the caller's own change among them, through a transaction.
void CommitGroup::lead(std::unique_lock<std::mutex>& lock)
{
    isLed_ = true;
    group_.swap(waiting_);
    lock.unlock();
    commitGroup();
    lock.lock();
    for (Change* change : group_) {
        change->isDone = true;
        change->turn.notify_one();
    }
    group_.clear();
    isLed_ = false;
    if (!waiting_.empty())
        waiting_.front()->turn.notify_one();
}

void CommitGroup::commitGroup()
{
    try {
        Transaction transaction(database_);
        if (group_.size() == 1)
            group_.front()->run();
        else
            for (Change* change : group_)
                runApart(*change);
        transaction.commit();
    } catch (...) {
        for (Change* change : group_) {
            if (!change->failure)
                change->failure = std::current_exception();
        }
    }
}

/// Throws only when the whole transaction has failed.
void CommitGroup::runApart(Change& change)
{
    Savepoint savepoint(database_);
    try {
        change.run();
    } catch (...) {
        change.failure = std::current_exception();
        if (!database_.isInTransaction())
            throw;
        savepoint.undo();
    }
    savepoint.release();
}

} // namespace masterd
