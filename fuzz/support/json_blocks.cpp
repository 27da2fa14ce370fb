#include "fuzz/support/json_blocks.h"

#include <cstdlib>
#include <cstring>
#include <jansson.h>
#include <unordered_set>

// The linker's names for a call that is wrapped. Callers give a dumped text back with free(), so it must be a
// block that is not counted.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" char* __real_json_dumps(const json_t* json, std::size_t flags);
extern "C" char* __wrap_json_dumps(const json_t* json, std::size_t flags)
{
    json_malloc_t takeBlock = nullptr;
    json_free_t giveBlock = nullptr;
    json_get_alloc_funcs(&takeBlock, &giveBlock);
    char* const counted = __real_json_dumps(json, flags);
    char* const text = counted ? strdup(counted) : nullptr;
    giveBlock(counted);
    return text;
}
// NOLINTEND(bugprone-reserved-identifier)

namespace fuzz {
namespace {

std::unordered_set<void*>& blocks()
{
    static std::unordered_set<void*> taken;
    return taken;
}

void* take(std::size_t size)
{
    void* const block = std::malloc(size);
    if (block)
        blocks().insert(block);
    return block;
}

void give(void* block)
{
    blocks().erase(block);
    std::free(block);
}

} // namespace

JsonScope::JsonScope()
{
    blocks().clear();
    json_set_alloc_funcs(take, give);
}

JsonScope::~JsonScope()
{
    json_set_alloc_funcs(std::malloc, std::free);
    for (void* const block : blocks())
        std::free(block);
    blocks().clear();
}

} // namespace fuzz
