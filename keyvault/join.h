// Text put together from parts.
#pragma once

#include <initializer_list>

#include "support/bldstr.h"

// A new string of all parts in their order, with room for at least `chars` characters; a NULL part counts as empty.
// NULL: no memory, and never a text that lacks a part.
BldStrPtr JoinText(DWORD chars, std::initializer_list<const WCHAR*> parts);

// The same for a text with a secret or a token in it.
SecretStrPtr JoinSecretText(DWORD chars, std::initializer_list<const WCHAR*> parts);
