#include "hostdb/json_arena.h"

#include "platform/json.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

using TQCLNTDB::JsonArena;

namespace {

constexpr const char* TEXT = R"([{"uuid": "u", "servers": ["a", "b"], "count": 7, "secure": true}])";

std::string compactText(const json_t* value)
{
    const tq::JsonText text(json_dumps(value, JSON_COMPACT));
    return text ? text.get() : "";
}

std::string readAndWritten(const std::string& text)
{
    const tq::JsonRef value(json_loads(text.c_str(), 0, nullptr));
    return compactText(value.get());
}

/// Blocks that the C library has given jansson and not got back.
class CountedBlocks {
public:
    CountedBlocks()
    {
        live = taken = 0;
        json_set_alloc_funcs(&take, &release);
    }
    CountedBlocks(const CountedBlocks&) = delete;
    CountedBlocks& operator=(const CountedBlocks&) = delete;
    ~CountedBlocks() { json_set_alloc_funcs(&std::malloc, &std::free); }

    static inline long live = 0;
    static inline long taken = 0;

private:
    static void* take(std::size_t bytes)
    {
        ++live;
        ++taken;
        return std::malloc(bytes);
    }
    static void release(void* block)
    {
        live -= block != nullptr ? 1 : 0;
        std::free(block);
    }
};

/// An array of so many numbers, as text.
std::string numbers(int count)
{
    std::string text = "[0";
    for (int i = 1; i < count; ++i)
        text.append(",").append(std::to_string(i));
    return text + "]";
}

TEST(JsonArena, ValuesReadAndPrintAsWithoutIt)
{
    const std::string without = readAndWritten(TEXT);
    ASSERT_THAT(without, testing::HasSubstr("servers"));
    const JsonArena arena(1000);
    EXPECT_EQ(readAndWritten(TEXT), without);
}

TEST(JsonArena, SmallBlocksAreTakenFromItAndNotFromTheCLibrary)
{
    const CountedBlocks counted;
    const std::string text = numbers(1000);
    tq::JsonRef(json_loads(text.c_str(), 0, nullptr)).reset();
    const long without = CountedBlocks::taken;
    CountedBlocks::taken = 0;
    const JsonArena arena(text.size());
    const tq::JsonRef value(json_loads(text.c_str(), 0, nullptr));
    EXPECT_EQ(json_array_size(value.get()), 1000U);
    EXPECT_GT(without, 1000);
    EXPECT_LT(CountedBlocks::taken, 50);
}

TEST(JsonArena, WhatHasNoRoomInItComesFromTheCLibraryAndGoesBack)
{
    constexpr int COUNT = 100'000; // 24 bytes each: more than the smallest arena has
    const CountedBlocks counted;
    {
        const JsonArena arena(0);
        const tq::JsonRef value(json_loads(numbers(COUNT).c_str(), 0, nullptr));
        ASSERT_EQ(json_array_size(value.get()), static_cast<std::size_t>(COUNT));
        EXPECT_EQ(json_integer_value(json_array_get(value.get(), COUNT - 1)), COUNT - 1);
        EXPECT_GT(CountedBlocks::live, COUNT / 4);
    }
    EXPECT_EQ(CountedBlocks::live, 0);
}

TEST(JsonArena, ReleasesWhatWasMadeBeforeIt)
{
    const CountedBlocks counted;
    tq::JsonRef before(json_loads(TEXT, 0, nullptr));
    ASSERT_GT(CountedBlocks::live, 0);
    {
        const JsonArena arena(1000);
        EXPECT_THAT(compactText(before.get()), testing::HasSubstr("servers"));
        before.reset();
    }
    EXPECT_EQ(CountedBlocks::live, 0);
}

TEST(JsonArena, LeavesTheHooksAsTheyWere)
{
    const CountedBlocks counted;
    {
        const JsonArena arena(1000);
    }
    const tq::JsonRef value(json_array());
    EXPECT_GT(CountedBlocks::live, 0);
}

TEST(JsonArena, OneFollowsTheOther)
{
    for (int round = 0; round < 3; ++round) {
        const JsonArena arena(1000);
        EXPECT_THAT(readAndWritten(TEXT), testing::StartsWith("[{"));
    }
}

TEST(JsonArena, WithoutAddressSpaceTheCLibraryServes)
{
    constexpr std::size_t MORE_THAN_THERE_IS = std::size_t{1} << 50U;
    const CountedBlocks counted;
    {
        const JsonArena arena(MORE_THAN_THERE_IS);
        EXPECT_THAT(readAndWritten(TEXT), testing::StartsWith("[{"));
        EXPECT_GT(CountedBlocks::taken, 10);
    }
    EXPECT_EQ(CountedBlocks::live, 0);
}

} // namespace
