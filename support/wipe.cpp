#include "support/wipe.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "support/text.h"

void Wipe(void* block, size_t size)
{
    if (block)
        SecureZeroMemory(block, size);
}

void WipeFree(void* block, size_t size)
{
    Wipe(block, size);
    free(block);
}

void* WipeRealloc(void* block, size_t oldSize, size_t newSize)
{
    void* grown = calloc(1, newSize);
    if (!grown)
        return nullptr;
    if (block)
        memcpy(grown, block, std::min(oldSize, newSize));
    WipeFree(block, oldSize);
    return grown;
}

void WipeFreeBytes(char* text)
{
    WipeFree(text, text ? strlen(text) : 0);
}

void WipeFreeText(WCHAR* text)
{
    WipeFree(text, View(text).size() * sizeof(WCHAR));
}
