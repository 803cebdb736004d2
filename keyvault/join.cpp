#include "keyvault/join.h"

#include <algorithm>

#include "support/text.h"

namespace {

// Appends all parts to `joined`, which has room for them. False: `joined` is NULL or has no text.
bool Add(BldStr* joined, std::initializer_list<const WCHAR*> parts)
{
    for (const WCHAR* part : parts) {
        if (part && !BldStrCat(joined, part))
            return false;
    }
    return joined && joined->cStr;
}

// An empty string with room for all parts, so that it never grows. NULL: no memory.
BldStr* NewFor(DWORD chars, std::initializer_list<const WCHAR*> parts)
{
    // A BldStr counts its bytes in a DWORD.
    constexpr size_t kLongest = UINT32_MAX / sizeof(WCHAR) - 1;
    size_t length = 0;
    for (const WCHAR* part : parts)
        length += View(part).size();
    return length > kLongest ? nullptr : BldStrNew(std::max(chars, static_cast<DWORD>(length)));
}

}  // namespace

BldStrPtr JoinText(DWORD chars, std::initializer_list<const WCHAR*> parts)
{
    BldStrPtr joined(NewFor(chars, parts));
    if (!Add(joined.get(), parts))
        joined.reset();
    return joined;
}

SecretStrPtr JoinSecretText(DWORD chars, std::initializer_list<const WCHAR*> parts)
{
    SecretStrPtr joined(NewFor(chars, parts));
    if (!Add(joined.get(), parts))
        joined.reset();
    return joined;
}
