#include "provider/import_name.h"

#include <string.h>

namespace {

WCHAR CharacterAt(const NCryptBuffer& buffer, size_t index)
{
    WCHAR ch;
    memcpy(&ch, static_cast<const BYTE*>(buffer.pvBuffer) + index * sizeof(ch), sizeof(ch));
    return ch;
}

}  // namespace

bool HasZeroByte(const NCryptBuffer& buffer)
{
    return memchr(buffer.pvBuffer, 0, buffer.cbBuffer);
}

bool HasZeroCharacter(const NCryptBuffer& buffer)
{
    for (size_t i = 0; i < buffer.cbBuffer / sizeof(WCHAR); i++) {
        if (!CharacterAt(buffer, i))
            return true;
    }
    return false;
}

void ImportName::Take(const NCryptBuffer& buffer)
{
    constexpr size_t kMost = sizeof(text_) / sizeof(WCHAR) - 1;
    size_t length = 0;
    for (; length < kMost && length < buffer.cbBuffer / sizeof(WCHAR); length++) {
        text_[length] = CharacterAt(buffer, length);
        if (!text_[length])
            break;
    }
    text_[length] = 0;
    taken_ = true;
}
