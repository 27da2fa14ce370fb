/// Changes of one database by several threads, which share transactions and so the disk's syncs.
///
/// A sync takes the disk longer than many changes take the processor, and one sync is enough for all that
/// came before it. The first thread that arrives leads: it runs its change in a transaction and commits,
/// which syncs. Whoever arrives meanwhile waits. Then the first that waits leads the next group, of all that
/// wait by then: it runs their changes in the order of their arrival, each in a savepoint of its own, and
/// commits once for all. So a change waits for two syncs at the most, a lone thread for its own only, and
/// nobody waits for others to come.
///
///     change 1   run, sync ------> answered
///     change 2        waits        run |
///     change 3         waits       run | one sync ------> both answered
///     change 4                             waits          run, sync ------> answered
#pragma once

#include "masterd/sqlite.h"

#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <vector>

namespace masterd {

/// Safe for use by several threads; nobody else may use the connection.
class CommitGroup {
public:
    /// `database` must outlive the group.
    explicit CommitGroup(Database& database) : database_(database) {}

    /// Runs a change in a transaction, perhaps on another thread, and returns when it is on the disk.
    ///
    /// What the change throws is thrown on; then it is undone, and the others of its transaction stand. A
    /// transaction that cannot be begun or committed, or that SQLite gives up in the midst of a change (as
    /// it may on a full disk), throws SqliteError for every change in it, and none of them is done.
    void run(std::function<void()> change);

    /// Changes that wait for the next transaction.
    [[nodiscard]] std::size_t waiting() const;

private:
    struct Change {
        std::function<void()> run;
        std::exception_ptr failure = nullptr;
        bool isDone = false;
        std::condition_variable turn = {}; ///< done, or to lead
    };

    void lead(std::unique_lock<std::mutex>& lock);
    void commitGroup();
    void runApart(Change& change);

    Database& database_;
    mutable std::mutex mutex_;
    bool isLed_ = false;           ///< a leader is at work
    std::vector<Change*> waiting_; ///< in order of arrival
    std::vector<Change*> group_;   ///< the leader's alone while it is at work
};

} // namespace masterd
