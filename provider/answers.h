// How a host reads a value: NULL asks for the size, a buffer that is too small is refused with the size, else the bytes
// are copied.
#pragma once

#include "platform/platform.h"

// Where a host wants an answer.
struct HostOutput {
    BYTE* bytes;  // NULL to ask for the size
    DWORD size;   // of the room
    DWORD* cbResult;
};

// Writes cbValue to *output.cbResult in every case. value: NULL if only the size is known. 0; NTE_BUFFER_TOO_SMALL, or
// NTE_NOT_SUPPORTED for a NULL value, with the buffer untouched.
SECURITY_STATUS AnswerBytes(const void* value, DWORD cbValue, const HostOutput& output);
