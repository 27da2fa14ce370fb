/// Waiting for what other threads bring about.
#pragma once

#include <chrono>
#include <thread>

namespace tests {

/// Waits until a condition holds; false when it does not for a long time.
template <typename Condition>
bool until(Condition condition)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

} // namespace tests
