// Text settings of any length.
#pragma once

#include "support/bldstr.h"

// Both take isMachine: non-zero for the machine hive, zero for the user's.

// Reads a REG_SZ of any length. The string is empty if the key or the value is missing or the value is of another type.
// The caller frees it with BldStrFree. NULL: no memory.
BldStr* BldStrGetWStringValue(int isMachine, const WCHAR* valueName);

// Writes `text` as a REG_SZ. 1; 0 if the key can't be opened or the value can't be written.
int BldStrSetWStringValue(int isMachine, const WCHAR* valueName, const WCHAR* text);
