// The two-call contract of everything that a host reads: NULL asks for the size, too small a buffer is refused with the
// size, else the bytes are copied.
#pragma once

#include "platform/platform.h"

// Writes cbValue to *pcbResult in every case. 0, or NTE_BUFFER_TOO_SMALL with pbOutput untouched.
SECURITY_STATUS AnswerBytes(const void* value, DWORD cbValue, BYTE* pbOutput, DWORD cbOutput, DWORD* pcbResult);
