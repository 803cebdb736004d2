// The value of the header "client-request-id".
#pragma once

#include "platform/platform.h"

constexpr size_t kUuidTextChars = 37;  // 36 characters and the terminator

// Writes a new UUID in lower case. If the platform's UUID service fails, makes a version 4 UUID from the platform's
// random generator, so that the header always has a new value.
void NewUuidText(WCHAR (&text)[kUuidTextChars]);
