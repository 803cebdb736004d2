// The value of the header line "client-request-id".
#pragma once

#include "platform/platform.h"

constexpr size_t kUuidTextChars = 37;  // 36 characters and the terminator

// Writes a new UUID in its lower-case text form. When the platform's UUID service fails, a version 4 UUID is made from
// the platform's random generator, so that the header line always has a fresh value.
void NewUuidText(WCHAR (&text)[kUuidTextChars]);
