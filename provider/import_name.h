// A key's name in a buffer of a parameter list.
#pragma once

#include "provider/key_object.h"

constexpr ULONG kLargestNameBuffer = 0x7FFFFFFF;  // bytes

// Whether a zero byte, or an aligned zero character, stands within the buffer's size.
bool HasZeroByte(const NCryptBuffer& buffer);
bool HasZeroCharacter(const NCryptBuffer& buffer);

// A terminated copy of a name. One that is too long for a key object is kept too long, so that the object refuses it.
class ImportName {
  public:
    // Reads up to a zero character, or to the end of the buffer: hosts pass names with and without the terminator
    // counted. Any alignment.
    void Take(const NCryptBuffer& buffer);

    // NULL when no name has been taken.
    const WCHAR* text() const { return taken_ ? text_ : nullptr; }

  private:
    bool taken_ = false;
    WCHAR text_[kKeyNameLimit + 2] = {};
};
