#include "tests/unit/fileutils/limited_memory.h"

#include <cstdlib>
#include <new>

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept
{
    return size > fakes::LARGEST_ALLOCATION ? nullptr : std::malloc(size > 0 ? size : 1);
}

void* operator new(std::size_t size)
{
    void* memory = operator new(size, std::nothrow);
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
