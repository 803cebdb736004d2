// The object behind an enumeration's state. Opaque to hosts; kelvaroctl reads the names from it, because EnumKeys reads
// every key.
#pragma once

#include "platform/platform.h"

// A snapshot of the names, taken at the first call: one block, with `count` pointers and `count` slots of kSlotChars
// characters after the fixed part. Owned by the host until FreeBuffer.
struct KSP_ENUM_STATE {
    static constexpr size_t kSlotChars = 128;

    LONG index;  // of the next name
    DWORD count;

    WCHAR** names() { return reinterpret_cast<WCHAR**>(this + 1); }
    WCHAR* slot(DWORD i) { return reinterpret_cast<WCHAR*>(names() + count) + i * kSlotChars; }
    bool AtEnd() const { return static_cast<DWORD>(index) >= count; }
};
