// One property's value on its way to the host.
#pragma once

#include <string.h>

#include "platform/platform.h"
#include "support/text.h"

class PropertyValue {
  public:
    // A copy of a number or of a published structure.
    template <typename T>
    void Set(const T& value)
    {
        static_assert(sizeof(T) <= sizeof(room_), "the room takes every published structure");
        memcpy(room_, &value, sizeof(T));
        bytes_ = room_;
        size_ = sizeof(T);
    }

    // A borrowed text, terminator included.
    void SetText(const WCHAR* text)
    {
        bytes_ = reinterpret_cast<const BYTE*>(text);
        size_ = static_cast<DWORD>((View(text).size() + 1) * sizeof(WCHAR));
    }

    // A value of which only the size is known.
    void SetSizeOnly(DWORD size)
    {
        bytes_ = nullptr;
        size_ = size;
    }

    const BYTE* bytes() const { return bytes_; }
    DWORD size() const { return size_; }

  private:
    BYTE room_[sizeof(SECURITY_DESCRIPTOR)];
    const BYTE* bytes_ = nullptr;
    DWORD size_ = 0;
};
