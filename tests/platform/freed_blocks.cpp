#include "tests/platform/freed_blocks.h"

#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <new>

namespace {

thread_local std::string_view watched;
thread_local int found = 0;

void Free(void* block)
{
    if (!watched.empty() && memmem(block, malloc_usable_size(block), watched.data(), watched.size()) != nullptr)
        ++found;
    free(block);
}

}  // namespace

// Zeros, so that nothing is found but what was written into the block.
void* operator new(size_t size)
{
    if (void* const block = calloc(1, size == 0 ? 1 : size))
        return block;
    throw std::bad_alloc();
}

void operator delete(void* block) noexcept
{
    Free(block);
}

void operator delete(void* block, size_t) noexcept
{
    Free(block);
}

FreedBlocks::FreedBlocks(std::string_view secret)
{
    found = 0;
    watched = secret;
}

FreedBlocks::~FreedBlocks()
{
    watched = {};
}

int FreedBlocks::withSecret() const
{
    return found;
}
