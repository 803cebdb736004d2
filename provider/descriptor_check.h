// Checks the security descriptors that hosts pass in.
#pragma once

#include "platform/platform.h"

// Whether `input` begins with a valid descriptor of at most cbInput bytes. Nothing beyond cbInput is read; the parts of
// an absolute descriptor are elsewhere and trusted. `input` may have any alignment.
bool HoldsSecurityDescriptor(const BYTE* input, DWORD cbInput);
