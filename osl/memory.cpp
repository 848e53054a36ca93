// Memory of the portable code: thin covers of the C library's calls.
#include "osl/memory.h"

#include <cstdlib>
#include <cstring>

void* OSL_Malloc(size_t size, uint32_t /*tag*/) noexcept
{
    return std::malloc(size);
}

void* OSL_MallocAlign(size_t /*alignment*/, size_t size) noexcept
{
    return std::malloc(size);
}

void* OSL_Calloc(size_t size, uint32_t tag) noexcept
{
    void* const block = OSL_Malloc(size, tag);
    if (block != nullptr) std::memset(block, 0, size);
    return block;
}

void OSL_Free(void* block) noexcept
{
    std::free(block);
}

void OSL_MemCopy(void* destination, const void* source, size_t count) noexcept
{
    if (destination == nullptr || source == nullptr) return;
    std::memcpy(destination, source, count);
}

size_t OSL_MemSet(void* address, int byte, size_t count) noexcept
{
    if (count != 0) std::memset(address, byte, count);
    return count;
}

int32_t OSL_MemCompare(const void* a, const void* b, size_t count) noexcept
{
    if (count == 0) return 0;
    const int order = std::memcmp(a, b, count);
    return (order > 0) - (order < 0);
}

char* OSL_StrNCopy(char* destination, const char* source, size_t count) noexcept
{
    return std::strncpy(destination, source, count);
}
