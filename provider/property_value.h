// The value of one property.
#pragma once

#include <string.h>

#include "platform/platform.h"
#include "support/text.h"

class PropertyValue {
  public:
    // Copies a number or a published structure.
    template <typename T>
    void Set(const T& value)
    {
        static_assert(sizeof(T) <= sizeof(room_), "room for every published structure");
        memcpy(room_, &value, sizeof(T));
        bytes_ = room_;
        size_ = sizeof(T);
    }

    // Borrows a text; its terminator counts.
    void SetText(const WCHAR* text)
    {
        bytes_ = reinterpret_cast<const BYTE*>(text);
        size_ = static_cast<DWORD>((View(text).size() + 1) * sizeof(WCHAR));
    }

    // Only the size is known.
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
