// Judging the security descriptors that hosts hand in.
#pragma once

#include "platform/platform.h"

// Whether `input` begins with a valid descriptor whose length is not above cbInput. Nothing behind cbInput is read; the
// parts of an absolute descriptor stand elsewhere and are trusted. `input` may have any alignment.
bool HoldsSecurityDescriptor(const BYTE* input, DWORD cbInput);
