// How a host reads a value: with NULL it gets the size, with a buffer that is too small an error and the size, else the
// bytes.
#pragma once

#include "platform/platform.h"

// Where to write a value for a host.
struct HostOutput {
    BYTE* bytes;  // NULL to ask for the size
    DWORD size;   // of the buffer
    DWORD* cbResult;
};

// Writes cbValue to *output.cbResult in every case. value: NULL if only the size is known. 0; NTE_BUFFER_TOO_SMALL, or
// NTE_NOT_SUPPORTED for a NULL value, with the buffer untouched.
SECURITY_STATUS AnswerBytes(const void* value, DWORD cbValue, const HostOutput& output);
