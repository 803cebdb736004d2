// Joining texts.
#pragma once

#include <initializer_list>

#include "support/bldstr.h"

// A new string of all parts in order, with room for at least `chars` characters; a NULL part counts as empty.
// NULL: no memory; there is never a partial text.
BldStrPtr JoinText(DWORD chars, std::initializer_list<const WCHAR*> parts);

// The same for a text that contains a secret or a token.
SecretStrPtr JoinSecretText(DWORD chars, std::initializer_list<const WCHAR*> parts);
