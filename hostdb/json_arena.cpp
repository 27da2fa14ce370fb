#include "hostdb/json_arena.h"

#include <functional>
#include <jansson.h>
#include <sys/mman.h>

namespace TQCLNTDB {
namespace {

/// The values of a record take about five times the bytes of its text. A text of nothing but small values
/// takes more, and the rest of them come from the C library.
constexpr std::size_t ARENA_BYTES_PER_REPLY_BYTE = 8;
constexpr std::size_t LEAST_ARENA_BYTES = std::size_t{1} << 20U;

/// Jansson's tables grow by being made anew: blocks of that size are worth being used again.
constexpr std::size_t MOST_BLOCK_BYTES = 96;

/// What all values of jansson can be aligned to: pointers, 64-bit numbers.
constexpr std::size_t ALIGNMENT = 8;

struct Region {
    char* begin = nullptr;
    char* next = nullptr;
    char* end = nullptr;
    json_malloc_t takeAfterwards = nullptr; ///< the hooks that the arena's stand in for
    json_free_t releaseAfterwards = nullptr;
};

/// The region of the one arena. Jansson's hooks take no argument that could carry it.
Region region;

void* takeBlock(std::size_t bytes)
{
    const std::size_t rounded = (bytes + ALIGNMENT - 1) / ALIGNMENT * ALIGNMENT;
    if (bytes > MOST_BLOCK_BYTES || rounded > static_cast<std::size_t>(region.end - region.next))
        return region.takeAfterwards(bytes);
    char* block = region.next;
    region.next += rounded;
    return block;
}

void releaseBlock(void* block)
{
    const std::less<const char*> isBefore;
    const auto* position = static_cast<const char*>(block);
    if (isBefore(position, region.begin) || !isBefore(position, region.end))
        region.releaseAfterwards(block);
}

} // namespace

JsonArena::JsonArena(std::size_t replyBytes)
{
    const std::size_t bytes = LEAST_ARENA_BYTES + replyBytes * ARENA_BYTES_PER_REPLY_BYTE;
    void* memory =
        mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED)
        return;
    region.begin = region.next = static_cast<char*>(memory);
    region.end = region.begin + bytes;
    json_get_alloc_funcs(&region.takeAfterwards, &region.releaseAfterwards);
    json_set_alloc_funcs(&takeBlock, &releaseBlock);
}

JsonArena::~JsonArena()
{
    if (region.begin == nullptr)
        return;
    json_set_alloc_funcs(region.takeAfterwards, region.releaseAfterwards);
    munmap(region.begin, static_cast<std::size_t>(region.end - region.begin));
    region = Region();
}

} // namespace TQCLNTDB
