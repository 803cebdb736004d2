// Texts put together from parts.
#pragma once

#include <initializer_list>

#include "support/guards.h"

// A new string of all parts behind one another, with room for at least `chars` characters; a NULL part counts as empty.
// The block is allocated once and never grows, so that no outgrown copy of a secret stays behind on the heap.
// NULL: no memory.
SecretStrPtr JoinText(DWORD chars, std::initializer_list<const WCHAR*> parts);

// Overwrites a terminated byte text with zeros and frees it. NULL does nothing.
void WipeFreeBytes(char* text);

struct WipeFreeBytesCaller {
    void operator()(char* text) const { WipeFreeBytes(text); }
};
// A byte text that holds a secret or a token.
using SecretBytesPtr = std::unique_ptr<char, WipeFreeBytesCaller>;
