/// Reading beside sending: the parts of a long reply.
#pragma once

#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace masterd {

/// Fetches the parts of a reply on a thread of its own, each while the one before it is being sent, so that
/// the database and the network need not wait for each other. Never more than one part ahead: a client that
/// takes its reply slowly costs two parts of memory.
class PartsAhead {
public:
    /// `fetch` gives the next part, and an empty text after the last. It is called by one thread at a time,
    /// at once for the first part; the caller's own serves where the machine has no other.
    explicit PartsAhead(std::function<std::string()> fetch);
    PartsAhead(const PartsAhead&) = delete;
    PartsAhead& operator=(const PartsAhead&) = delete;
    /// Waits for a fetch in hand.
    ~PartsAhead();

    /// The next part; empty after the last. Throws what `fetch` threw; no part follows then.
    std::string next();

private:
    void fetchAhead();

    std::function<std::string()> fetch_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::optional<std::string> part_; ///< fetched, and not taken yet
    std::exception_ptr failure_;
    bool isEnded_ = false; ///< nothing more is to be fetched
    std::thread thread_;
};

} // namespace masterd
