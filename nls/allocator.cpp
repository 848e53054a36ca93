// Memory of the catalogue runtime, in one place so that it can be another's.
#include <cstdlib>

#include "nls/catalogue_runtime.h"

void* nls_malloc(std::size_t size) noexcept
{
    return std::malloc(size);
}
void* nls_realloc(void* block, std::size_t size) noexcept
{
    return std::realloc(block, size);
}
void nls_free(void* block) noexcept
{
    std::free(block);
}
