/// How much stack the threads of a test get.
#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

namespace tests {

/// What threads without a size of their own get while it lives. The system's library gives them 2 MiB where
/// the limit of the main stack is lifted.
class DefaultStackSize {
public:
    explicit DefaultStackSize(std::size_t bytes)
    {
        pthread_getattr_default_np(&before_);
        pthread_attr_t changed{};
        pthread_attr_init(&changed);
        pthread_attr_setstacksize(&changed, bytes);
        EXPECT_EQ(pthread_setattr_default_np(&changed), 0);
        pthread_attr_destroy(&changed);
    }
    DefaultStackSize(const DefaultStackSize&) = delete;
    DefaultStackSize& operator=(const DefaultStackSize&) = delete;
    ~DefaultStackSize()
    {
        pthread_setattr_default_np(&before_);
        pthread_attr_destroy(&before_);
    }

private:
    pthread_attr_t before_{};
};

} // namespace tests
