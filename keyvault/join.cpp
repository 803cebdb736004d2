#include "keyvault/join.h"

#include <string.h>

#include <algorithm>

#include "support/text.h"

SecretStrPtr JoinText(DWORD chars, std::initializer_list<const WCHAR*> parts)
{
    // What a DWORD of bytes can count is what a BldStr can hold.
    constexpr size_t kLongest = UINT32_MAX / sizeof(WCHAR) - 1;
    size_t length = 0;
    for (const WCHAR* part : parts)
        length += View(part).size();
    if (length > kLongest)
        return nullptr;

    SecretStrPtr joined(BldStrNew(std::max(chars, static_cast<DWORD>(length))));
    for (const WCHAR* part : parts) {
        if (part && !BldStrCat(joined.get(), part))
            return nullptr;
    }
    return joined;
}

void WipeFreeBytes(char* text)
{
    if (!text)
        return;
    Wipe(text, strlen(text));
    free(text);
}
