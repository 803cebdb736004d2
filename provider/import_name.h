// A key's name in a parameter list.
#pragma once

#include "provider/key_object.h"

constexpr ULONG kLargestNameBuffer = 0x7FFFFFFF;  // bytes

// Whether the buffer contains a zero byte, or an aligned zero character.
bool HasZeroByte(const NCryptBuffer& buffer);
bool HasZeroCharacter(const NCryptBuffer& buffer);

// A terminated copy of a name. If it is too long for a key object, the copy is too long too, so the object refuses it.
class ImportName {
  public:
    // Reads up to a zero character or the end of the buffer, since hosts pass names with and without the terminator
    // counted. Any alignment.
    void Take(const NCryptBuffer& buffer);

    // NULL until a name has been taken.
    const WCHAR* text() const { return taken_ ? text_ : nullptr; }

  private:
    bool taken_ = false;
    WCHAR text_[kKeyNameLimit + 2] = {};
};
