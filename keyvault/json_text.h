// Values inside the JSON texts that go out.
#pragma once

#include "support/bldstr.h"

// Appends `value` to a JSON text, between the quotes that the caller writes. It goes out as it stands, but for double
// quotes, backslashes and control characters, which become JSON escapes. 1 with the value appended, 0 with the string
// unchanged.
int BldStrCatJson(BldStr* str, const WCHAR* value);
