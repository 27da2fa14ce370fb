#include "tests/unit/platform/short_memory.h"

#include <cstdlib>
#include <new>

namespace {

bool memoryIsShort = false;

} // namespace

tests::ShortMemory::ShortMemory()
{
    memoryIsShort = true;
}

tests::ShortMemory::~ShortMemory()
{
    memoryIsShort = false;
}

void* operator new(std::size_t size)
{
    void* memory = memoryIsShort ? nullptr : std::malloc(size != 0 ? size : 1);
    if (!memory)
        throw std::bad_alloc();
    return memory;
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}
